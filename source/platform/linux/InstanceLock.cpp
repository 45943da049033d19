#include "platform/InstanceLock.h"

#include <unistd.h>

/** The toolkit makes a file of that name in a folder of all users, and takes one that it may not open for a lock that
    it has: each user needs a file of their own.
*/
juce::String InstanceLock::getNameForUser (const juce::String& name)
{
    return name + "-" + juce::String (::geteuid());
}
