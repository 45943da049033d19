#pragma once

#include <juce_core/juce_core.h>

/** The lock that one instance of the program holds for each user, whoever else is on the machine. */
namespace InstanceLock
{

/** What to call a juce::InterProcessLock so that it is one for each user.
    @param name   what the program calls it
*/
juce::String getNameForUser (const juce::String& name);

} // namespace InstanceLock
