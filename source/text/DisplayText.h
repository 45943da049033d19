#pragma once

#include <juce_core/juce_core.h>

/** Names as they are drawn. They come from drivers and can hold anything; reports have them as they are. Any thread. */
namespace DisplayText
{

/** A name on one line: line breaks and other control characters become blanks. Scripts that run from right to left
    are put into the order in which they are drawn, Arabic in its joined forms, where the toolkit does not do so itself.
    The line as a whole runs from left to right, as the interface does.
*/
juce::String fromName (const juce::String& name);

} // namespace DisplayText
