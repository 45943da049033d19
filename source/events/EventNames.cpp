#include "events/EventNames.h"

namespace EventNames
{

static constexpr const char* names[] {
    "Listen attach",
    "Listen attach completion",
    "Listen complete",
    "Listen detach",
    "Listen detach completion",
    "Talk attach",
    "Talk filled",
    "Talk pack",
    "Talk attach completion",
    "Talk complete",
    "Talk detach",
    "Talk detach completion",
    "User client event",
    "Isoc Q DPC signaled",
    "Isoc Q DPC",
    "Listen complete startup A",
    "Listen complete startup B",
    "Clock adjust",
    "Clock no adjust",
    "Listen buffer adjust",
    "Buffer state",
    "FIFO count",
    "User audio output ready",
    "Debug counts",
};

juce::String get (int type)
{
    static const juce::StringArray texts (names, juce::numElementsInArray (names));
    return juce::isPositiveAndBelow (type, texts.size()) ? texts[type] : "Unknown event " + juce::String (type);
}

} // namespace EventNames
