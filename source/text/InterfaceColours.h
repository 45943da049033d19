#pragma once

#include <juce_graphics/juce_graphics.h>

/** The colours that several windows share. */
namespace InterfaceColours
{

/** The background of everything but tables. */
inline const juce::Colour ground { 15, 15, 15 };

/** Buttons, and the finished part of a report. */
inline const juce::Colour button { 0, 200, 0 };

} // namespace InterfaceColours
