#include "platform/InstanceLock.h"

/** The toolkit makes a mutex, one of the session's when it may not open another user's. */
juce::String InstanceLock::getNameForUser (const juce::String& name)
{
    return name;
}
