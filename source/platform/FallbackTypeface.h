#pragma once

#include <juce_graphics/juce_graphics.h>

namespace FallbackTypeface
{

/** The system's choice of a typeface for a character that the interface's own lacks.

    @param font     the one that it should be like, in weight above all
    @returns        null when the system knows of none; what it returns need not have the character. Message thread.
*/
juce::Typeface::Ptr find (juce::juce_wchar character, const juce::Font& font);

} // namespace FallbackTypeface
