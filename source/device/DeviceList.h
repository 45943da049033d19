#pragma once

#include "device/HwDevice.h"
#include <juce_events/juce_events.h>
#include <memory>
#include <vector>

class CDevChangeNotify;

/** The device-interface class of the driver. */
inline constexpr auto DeviceInterfaceGuid = DriverProtocol::makeInterfaceClass<GUID>();

/** The program's one list of devices, newest first: index 0 is the device found or arrived last.

    Any thread may call anything but the constructor, the destructor and setListener, which belong to the message
    thread. Positions change whenever a device arrives or leaves.
*/
class DeviceList
{
public:
    /** The toolkit's logger, whose logMessage is public here. */
    struct LogSink : public juce::Logger
    {
        void logMessage (const juce::String& line) override = 0;
    };

    /** Lists the interfaces that are present.

        @param numVendorIds, vendorIds  devices of other vendors are left out; none: every vendor is welcome
        @param lockToUse  lock of the list and of its devices, not owned, outlives them; null: each has its own
        @param logSink    hears of every device found or left out; not owned, may be null
    */
    DeviceList (int numVendorIds = 0,
                const int* vendorIds = nullptr,
                juce::CriticalSection* lockToUse = nullptr,
                LogSink* logSink = nullptr);

    /** Releases every device, then stops the notifications. Message thread. */
    ~DeviceList();

    /** Inserts the present interfaces, or only the one of that path. It does not look at what the list holds:
        an interface that is already in it is inserted again.
        @param replaced  leaves the list at the same moment, also when nothing is inserted; may be null
        @returns         the device inserted last, or null
    */
    HwDevice::Ptr scan (const juce::String* path, const HwDevice* replaced = nullptr);

    /** Of the interfaces that are present, listed or not, in the system's order. */
    static juce::StringArray getPresentPaths();

    /** An exact match wins over one that differs in case. @returns null when there is no such device */
    HwDevice::Ptr findByPath (const juce::String& path);

    /** The device of an interface that the system named, which may spell its path in another case, unless there is an
        interface of the very path that is another one.
    */
    HwDevice::Ptr findInterface (const juce::String& path);

    /** Takes the first device of that path out of the list. The device dies with its last reference, which can be
        right here.
    */
    void removeByPath (const juce::String& path);

    /** The device lives as long as the caller keeps the reference. @returns null outside of the list */
    HwDevice::Ptr getDevice (int index) const;

    int getNumDevices() const;

    /** All devices at one moment, in the list's order. */
    std::vector<HwDevice::Ptr> getDevices() const;

    /** Replaces the listener that DeviceChangeMessages go to; not owned. A listener is detached
        (by null, or by its successor) before it dies. The first call starts the notifications.
    */
    void setListener (juce::MessageListener* listener);

private:
    using Devices = std::vector<HwDevice::Ptr>;

    bool isAcceptedVendor (const HwDevice&) const;
    void clear();
    Devices::const_iterator find (const juce::String& path) const;
    void log (const char* verb, const HwDevice&) const;

    const juce::Array<int> vendorFilter;
    Devices devices;
    std::unique_ptr<CDevChangeNotify> notifier;
    LogSink* const logSink;
    juce::CriticalSection ownLock;
    juce::CriticalSection& lock; // our own, or the one that was passed in

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (DeviceList)
};
