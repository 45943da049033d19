#pragma once

#include "device/DeviceList.h"
#include "tests/unit/support/Join.h"
#include "tests/unit/support/TestDriver.h"

/** A list of the machine's devices, all of them open. */
struct OpenList : public DeviceList
{
    OpenList()
    {
        for (const auto& device : getDevices())
            device->open();
    }
};

/** Names of a list's devices, in the list's order. */
inline juce::String namesOf (const DeviceList& devices)
{
    return join (devices.getDevices(), ",", [] (const HwDevice::Ptr& device) { return device->getName(); });
}

/** The only interface of a machine, and its driver. */
struct OneDevice
{
    explicit OneDevice (const TestDriver::Setup& setup = {}) : driver (machine, setup) {}

    const TestMachine machine;
    TestDriver driver;
    const DeviceList devices;
    const HwDevice::Ptr device = devices.getDevice (0);
};
