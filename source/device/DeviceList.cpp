#include "device/DeviceList.h"

#include "device/CDevChangeNotify.h"
#include "device/DriverText.h"
#include <vector>

DeviceList::DeviceList (int numVendorIds, const int* vendorIds, juce::CriticalSection* lockToUse, juce::Logger* sink)
    : vendorFilter (vendorIds, numVendorIds),
      logSink (sink),
      lock (lockToUse != nullptr ? lockToUse : new juce::CriticalSection()),
      ownsLock (lockToUse == nullptr)
{
    scan (nullptr);
}

DeviceList::~DeviceList()
{
    clear();

    // Not under the lock: it waits for a notification that may want the list.
    notifier.reset();

    // What that notification has still inserted.
    clear();

    if (ownsLock)
        delete lock;
}

//==============================================================================
/** The path of one enumerated interface; empty when there is none to be had. */
static juce::String getInterfacePath (HDEVINFO set, SP_DEVICE_INTERFACE_DATA& interfaceData)
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
    return textFromDriver (reinterpret_cast<const char*> (detail) + pathOffset, required - pathOffset);
}

HwDevice::Ptr DeviceList::scan (const juce::String* path)
{
    const juce::ScopedLock locked (*lock);
    auto* deviceLock = ownsLock ? nullptr : lock;

    const auto set =
        SetupDiGetClassDevsA (&DeviceInterfaceGuid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);

    if (set == INVALID_HANDLE_VALUE)
        return nullptr;

    HwDevice::Ptr result;

    for (DWORD index = 0;; ++index)
    {
        SP_DEVICE_INTERFACE_DATA interfaceData {};
        interfaceData.cbSize = sizeof (interfaceData);

        if (SetupDiEnumDeviceInterfaces (set, nullptr, &DeviceInterfaceGuid, index, &interfaceData) == FALSE)
            break;

        const auto interfacePath = getInterfacePath (set, interfaceData);

        if (interfacePath.isEmpty())
            break;

        if (path != nullptr && ! interfacePath.equalsIgnoreCase (*path))
            continue;

        const HwDevice::Ptr device (new HwDevice (interfacePath, set, interfaceData, deviceLock));
        const bool accepted = isAcceptedVendor (*device);
        log (accepted ? "Found device" : "Ignoring device", *device);

        if (accepted)
            insert (device.get());

        result = accepted ? device : nullptr;
    }

    SetupDiDestroyDeviceInfoList (set);
    return result;
}

bool DeviceList::isAcceptedVendor (const HwDevice& device) const
{
    return vendorFilter.isEmpty() || vendorFilter.contains (static_cast<int> (device.getVendorId()));
}

/** The toolkit lets only a logger's own kind write to one logger instead of the process's. */
struct LogAccess : public juce::Logger
{
    static void write (juce::Logger& sink, const juce::String& line) { (sink.*&LogAccess::logMessage) (line); }
};

void DeviceList::log (const char* verb, const HwDevice& device) const
{
    if (logSink != nullptr)
        LogAccess::write (*logSink,
                          verb
                              + juce::String::formatted (" %S  vendor:0x%x  type:0x%x",
                                                         device.getName().toWideCharPointer(),
                                                         device.getVendorId(),
                                                         device.getTypeId()));
}

//==============================================================================
/** Takes a reference. Call with the lock held. */
void DeviceList::insert (HwDevice* device)
{
    device->incReferenceCount();
    device->next = head;

    if (head != nullptr)
        head->previous = device;

    head = device;
    ++count;
}

/** Gives the reference back. Call with the lock held. */
void DeviceList::remove (HwDevice* device)
{
    if (device->previous != nullptr)
        device->previous->next = device->next;

    if (device->next != nullptr)
        device->next->previous = device->previous;

    if (device == head)
        head = device->next;

    device->previous = device->next = nullptr;
    --count;
    device->decReferenceCount();
}

void DeviceList::clear()
{
    const juce::ScopedLock locked (*lock);

    while (head != nullptr)
        remove (head);
}

/** Call with the lock held. */
HwDevice* DeviceList::find (const juce::String& path) const
{
    for (auto* device = head; device != nullptr; device = device->next)
        if (device->path.equalsIgnoreCase (path))
            return device;

    return nullptr;
}

//==============================================================================
HwDevice::Ptr DeviceList::findByPath (const juce::String& path)
{
    const juce::ScopedLock locked (*lock);
    return find (path);
}

void DeviceList::removeByPath (const juce::String& path)
{
    const juce::ScopedLock locked (*lock);

    if (auto* device = find (path); device != nullptr)
        remove (device);
}

HwDevice::Ptr DeviceList::getDevice (int index) const
{
    const juce::ScopedLock locked (*lock);

    if (index < 0 || index >= count)
        return nullptr;

    auto* device = head;

    while (index-- > 0)
        device = device->next;

    return device;
}

int DeviceList::getNumDevices() const
{
    const juce::ScopedLock locked (*lock);
    return count;
}

std::vector<HwDevice::Ptr> DeviceList::getDevices() const
{
    const juce::ScopedLock locked (*lock);
    std::vector<HwDevice::Ptr> devices;

    for (auto* device = head; device != nullptr; device = device->next)
        devices.push_back (device);

    return devices;
}

void DeviceList::setListener (juce::MessageListener* listener)
{
    if (notifier == nullptr)
        notifier = std::make_unique<CDevChangeNotify> (DeviceInterfaceGuid, *this, listener);
    else
        notifier->setListener (listener);
}
