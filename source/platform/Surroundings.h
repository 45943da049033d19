#pragma once

#include <functional>
#include <juce_core/juce_core.h>

/** What the reports take from around them. Tests put their own in place; message thread. */
namespace Surroundings
{

/** The local time. */
inline std::function<juce::Time()> getCurrentTime = [] { return juce::Time::getCurrentTime(); };

/** Where the user keeps documents; need not exist. */
inline std::function<juce::File()> getDocumentsFolder = []
{ return juce::File::getSpecialLocation (juce::File::userDocumentsDirectory); };

/** A time as both reports write it: "19 Nov 2026 2:47:50am". */
inline juce::String describeTime (const juce::Time& time)
{
    return time.toString (true, true, true, false);
}

} // namespace Surroundings
