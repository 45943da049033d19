#pragma once

#include "device/DeviceList.h"
#include <functional>

/** What is to be said of each element, in one text. */
template <typename Range, typename Describe>
juce::String join (const Range& range, const char* separator, const Describe& describe)
{
    juce::StringArray texts;

    for (const auto& element : range)
        texts.add (std::invoke (describe, element));

    return texts.joinIntoString (separator);
}

/** The devices of the machine, all of which it opens. */
struct OpenList : public DeviceList
{
    OpenList()
    {
        for (const auto& device : getDevices())
            device->open();
    }
};

/** Names of a list's devices, in its order. */
inline juce::String namesOf (const DeviceList& devices)
{
    return join (devices.getDevices(), ",", [] (const HwDevice::Ptr& device) { return device->getName(); });
}
