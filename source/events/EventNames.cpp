#include "events/EventNames.h"

#include "protocol/EventType.h"

namespace EventNames
{

juce::String get (int type)
{
    static const juce::StringArray texts (DriverProtocol::eventNames,
                                          juce::numElementsInArray (DriverProtocol::eventNames));
    return juce::isPositiveAndBelow (type, texts.size()) ? texts[type] : "Unknown event " + juce::String (type);
}

} // namespace EventNames
