#pragma once

#include <juce_graphics/juce_graphics.h>

/** The colours that several windows share. */
namespace InterfaceColours
{

/** Behind everything but tables. */
inline const juce::Colour ground { 15, 15, 15 };

/** Of buttons, and of what is done of a report. */
inline const juce::Colour button { 0, 200, 0 };

} // namespace InterfaceColours
