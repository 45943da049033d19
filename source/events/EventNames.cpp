#include "events/EventNames.h"

#include "protocol/EventType.h"
#include <iterator>

namespace EventNames
{

/** One for each name. */
static constexpr const char* meanings[] {
    "The driver has the interface begin to send what it records.",
    "The interface has begun to send what it records.",
    "A buffer of recorded audio has arrived from the interface.",
    "The driver has the interface stop sending.",
    "The interface has stopped sending.",
    "The driver begins to send audio for playback to the interface.",
    "A buffer for playback has been filled with the host's audio.",
    "A buffer for playback has been put into packets for the bus.",
    "The interface has begun to play.",
    "A buffer for playback has been sent to the interface.",
    "The driver stops sending audio for playback.",
    "The interface has stopped playing.",
    "The host has been woken for a buffer.",
    "The bus has asked the driver to see to its buffers.",
    "The driver has begun to see to its buffers.",
    "A recorded buffer has arrived while the stream was starting, first stage.",
    "A recorded buffer has arrived while the stream was starting, second stage.",
    "The driver has corrected its clock to follow the interface's.",
    "The driver has compared its clock with the interface's and left it alone.",
    "The driver has moved the recorded buffers after a correction of its clock.",
    "Which of its buffers the driver uses. The parameter tells.",
    "How full the interface's own buffer was. The parameter tells.",
    "The host has finished a buffer.",
    "Audio was lost, or its losses were counted. The parameter tells how often.",
};

static_assert (std::size (meanings) == std::size (DriverProtocol::eventNames));

juce::String get (int type)
{
    static const juce::StringArray texts (DriverProtocol::eventNames,
                                          juce::numElementsInArray (DriverProtocol::eventNames));
    return juce::isPositiveAndBelow (type, texts.size()) ? texts[type] : "Unknown event " + juce::String (type);
}

juce::String explain (int type)
{
    return juce::isPositiveAndBelow (type, juce::numElementsInArray (meanings)) ? meanings[type]
                                                                                : "Quendel does not know this kind.";
}

} // namespace EventNames
