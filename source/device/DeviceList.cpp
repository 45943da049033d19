#include "device/DeviceList.h"

#include "device/CDevChangeNotify.h"
#include "device/DriverText.h"
#include <algorithm>
#include <cstring>

DeviceList::DeviceList (int numVendorIds, const int* vendorIds, juce::CriticalSection* lockToUse, LogSink* sink)
    : vendorFilter (vendorIds, numVendorIds),
      logSink (sink),
      lock (lockToUse != nullptr ? *lockToUse : ownLock)
{
    scan (nullptr);
}

DeviceList::~DeviceList()
{
    clear();

    // Not under the lock: it waits for a notification that may need the list.
    notifier.reset();
}

//==============================================================================
/** The path of one enumerated interface, as the system spells it; empty when there is none. */
static std::string getInterfacePath (HDEVINFO set, SP_DEVICE_INTERFACE_DATA& interfaceData)
{
    DWORD required = 256;
    SetupDiGetDeviceInterfaceDetailA (set, &interfaceData, nullptr, 0, &required, nullptr);

    // Whole structures, so that the first one is aligned.
    std::vector<SP_DEVICE_INTERFACE_DETAIL_DATA_A> storage (required / sizeof (SP_DEVICE_INTERFACE_DETAIL_DATA_A) + 1);
    auto* detail = storage.data();
    detail->cbSize = sizeof (*detail);

    if (SetupDiGetDeviceInterfaceDetailA (set, &interfaceData, detail, required, nullptr, nullptr) == FALSE)
        return {};

    constexpr auto pathOffset = offsetof (SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
    const auto* path = reinterpret_cast<const char*> (detail) + pathOffset;
    return { path, ::strnlen (path, required - pathOffset) };
}

/** Calls visit (path, set, interfaceData) for each present interface of the driver's class. */
template <typename Visit>
static void enumerateInterfaces (Visit&& visit)
{
    const auto set =
        SetupDiGetClassDevsA (&DeviceInterfaceGuid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);

    if (set == INVALID_HANDLE_VALUE)
        return;

    for (DWORD index = 0;; ++index)
    {
        SP_DEVICE_INTERFACE_DATA interfaceData {};
        interfaceData.cbSize = sizeof (interfaceData);

        if (SetupDiEnumDeviceInterfaces (set, nullptr, &DeviceInterfaceGuid, index, &interfaceData) == FALSE)
            break;

        const auto path = getInterfacePath (set, interfaceData);

        if (path.empty())
            break;

        visit (path, set, interfaceData);
    }

    SetupDiDestroyDeviceInfoList (set);
}

juce::StringArray DeviceList::getPresentPaths()
{
    juce::StringArray paths;
    enumerateInterfaces ([&paths] (const auto& path, auto, auto&) { paths.add (pathFromSystem (path)); });
    return paths;
}

HwDevice::Ptr DeviceList::scan (const juce::String* path, const HwDevice* replaced)
{
    const juce::ScopedLock locked (lock);
    const bool ignoresCase = path != nullptr && ! getPresentPaths().contains (*path);
    auto* deviceLock = &lock == &ownLock ? nullptr : &lock;
    HwDevice::Ptr result;

    enumerateInterfaces (
        [&] (const auto& interfacePath, auto set, auto& interfaceData)
        {
            const auto present = pathFromSystem (interfacePath);

            if (path != nullptr && (ignoresCase ? ! present.equalsIgnoreCase (*path) : present != *path))
                return;

            const HwDevice::Ptr device (new HwDevice (interfacePath, set, interfaceData, deviceLock));
            const bool accepted = isAcceptedVendor (*device);
            log (accepted ? "Found device" : "Ignoring device", *device);

            if (accepted)
                devices.insert (devices.begin(), device);

            result = accepted ? device : nullptr;
        });

    std::erase_if (devices, [replaced] (const auto& device) { return device.get() == replaced; });
    return result;
}

bool DeviceList::isAcceptedVendor (const HwDevice& device) const
{
    return vendorFilter.isEmpty() || vendorFilter.contains (static_cast<int> (device.getVendorId()));
}

void DeviceList::log (const char* verb, const HwDevice& device) const
{
    // The name is added separately: what %S means depends on the system.
    if (logSink != nullptr)
        logSink->logMessage (
            juce::String (verb) + " " + device.getName()
            + juce::String::formatted ("  vendor:0x%x  type:0x%x", device.getVendorId(), device.getTypeId()));
}

//==============================================================================
void DeviceList::clear()
{
    const juce::ScopedLock locked (lock);
    devices.clear();
}

/** Call with the lock held. */
DeviceList::Devices::const_iterator DeviceList::find (const juce::String& path) const
{
    const auto findIf = [this] (const auto& isSought)
    { return std::find_if (devices.begin(), devices.end(), isSought); };
    const auto found = findIf ([&path] (const auto& device) { return device->getPath() == path; });
    return found != devices.end()
               ? found
               : findIf ([&path] (const auto& device) { return device->getPath().equalsIgnoreCase (path); });
}

HwDevice::Ptr DeviceList::findByPath (const juce::String& path)
{
    const juce::ScopedLock locked (lock);
    const auto found = find (path);
    return found != devices.end() ? *found : nullptr;
}

HwDevice::Ptr DeviceList::findInterface (const juce::String& path)
{
    const auto device = findByPath (path);
    const bool isAnother = device != nullptr && device->getPath() != path && getPresentPaths().contains (path);
    return isAnother ? nullptr : device;
}

void DeviceList::removeByPath (const juce::String& path)
{
    const juce::ScopedLock locked (lock);

    if (const auto found = find (path); found != devices.end())
        devices.erase (found);
}

HwDevice::Ptr DeviceList::getDevice (int index) const
{
    const juce::ScopedLock locked (lock);
    return juce::isPositiveAndBelow (index, getNumDevices()) ? devices[static_cast<std::size_t> (index)] : nullptr;
}

int DeviceList::getNumDevices() const
{
    const juce::ScopedLock locked (lock);
    return static_cast<int> (devices.size());
}

std::vector<HwDevice::Ptr> DeviceList::getDevices() const
{
    const juce::ScopedLock locked (lock);
    return devices;
}

void DeviceList::setListener (juce::MessageListener* listener)
{
    if (notifier == nullptr)
        notifier = std::make_unique<CDevChangeNotify> (DeviceInterfaceGuid, *this, listener);
    else
        notifier->setListener (listener);
}
