#pragma once

#include <juce_core/juce_core.h>

/** What the driver's event types are called. */
namespace EventNames
{

inline constexpr int listenComplete = 2;

/** A type that has no name is shown by its number. */
juce::String get (int type);

/** What an event of this type means, in a sentence. */
juce::String explain (int type);

} // namespace EventNames
