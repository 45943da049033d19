#pragma once

#include "platform/Win32.h"
#include <juce_core/juce_core.h>

/** Device-instance ids of the machine's present IEEE 1394 host controllers, in SetupAPI's order. */
class HostControllerList : public juce::StringArray
{
public:
    /** Enumerates at once; empty when there are none or they cannot be listed. */
    HostControllerList();
    ~HostControllerList();

private:
    HDEVINFO set;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HostControllerList)
};
