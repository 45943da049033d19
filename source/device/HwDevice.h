#pragma once

#include "device/HwInfoCaps.h"
#include "platform/DriverHandle.h"
#include "protocol/DriverProtocol.h"
#include <array>
#include <atomic>
#include <juce_core/juce_core.h>

/** The words of the reply to one ReadFirmwareCounters transaction. */
using FirmwareCounters = std::array<std::uint32_t, DriverProtocol::TransactionBlock::numWords>;

/** Outcome of a request: 0 for success, everything else is a failure, and callers do not tell failures apart.

    1: the request did not get through, or the driver answered with an error; of a transaction also -1: one of the two
    statuses that the driver refuses with, and 2: the driver succeeded, the device did not.
*/
using RequestResult = int;
using TransactionResult = RequestResult;

/** One device interface of the driver: its registry values, its counted open, and the driver's requests.

    Reference-counted; the DeviceList holds one reference while the device is in it. Any thread: the device's
    lock is held for the whole of each open, close and request, readEventEntry excepted. What a request that
    fails would have told keeps its old value; none is retried.
*/
class HwDevice : public juce::ReferenceCountedObject
{
public:
    using Ptr = juce::ReferenceCountedObjectPtr<HwDevice>;

    /** The name of a device whose registry key names none. */
    static constexpr auto defaultName = "Tamrix";

    /** Reads the interface's registry key.

        @param systemPath                     the interface's path, byte for byte as the system has it
        @param deviceInfoSet, interfaceData   the enumeration that yielded the path; used during construction only
        @param lockToUse                      not owned, outlives the device; null: the device makes its own
    */
    HwDevice (std::string systemPath,
              HDEVINFO deviceInfoSet,
              SP_DEVICE_INTERFACE_DATA& interfaceData,
              juce::CriticalSection* lockToUse = nullptr);

    ~HwDevice() override;

    //==============================================================================
    /** Counts an open; the first one opens the interface and has the statistics block mapped.
        @returns 0 when the device is usable
    */
    RequestResult open();

    /** Undoes one open; the last one closes the interface. Does nothing without an open. */
    void close();

    /** One close and one open, which no other request comes between. Nothing while it is closed for its removal, nor
        while it has a request outstanding: opening it again would tell nothing new.
    */
    void reopen();

    /** For when the system asks whether the device may be removed, for instance to update its driver, which an
        open interface forbids: closes it if it is this device's that the notification is about. Its opens stay counted,
        and its requests fail, until openAfterRemovalFailed or the last close. Notification thread.
    */
    void closeForRemoval (const DEV_BROADCAST_HANDLE& notification);

    /** The device stays: opens again what closeForRemoval closed; when that fails, so do its requests, until the next
        reopen. Notification thread.
    */
    void openAfterRemovalFailed (const DEV_BROADCAST_HANDLE& notification);

    /** True between these two calls: the device cannot answer, and may yet stay. */
    bool isClosedForRemoval() const noexcept { return closedForRemoval; }

    /** True when its driver has not answered a request that was given up: slow or silent, but not gone. */
    bool hasOutstandingRequest() const;

    /** False as well while it is closed for its removal. */
    bool isOpen() const;

    /** True until somebody opens a usable device. Until then it cannot answer a probe. */
    bool isYetToBeOpened() const;

    //==============================================================================
    /** The name that the user gave it, from the registry. Never changes. */
    juce::String getName() const { return name; }

    /** The interface's path, for comparing: each of its bytes is a character. Never changes. */
    juce::String getPath() const { return path; }

    std::uint32_t getVendorId() const noexcept { return caps.getVendorId(); }
    std::uint32_t getTypeId() const noexcept { return caps.getTypeId(); }
    const HwInfoCaps& getCaps() const noexcept { return caps; }

    /** Where the driver's StatisticsBlock for this device is in this process, as the MapStatistics of the last open
        said; 0 before, and when that failed. One that was not answered in time is sent again once the driver has
        answered anything else. Reading there can fault, as it does once the device is closed.
    */
    std::uint32_t getStatisticsAddress() const;

    /** Calls read with that address. The device is not closed until read returns. */
    template <typename Read>
    void readStatistics (Read&& read) const
    {
        const juce::ScopedLock locked (lock);
        read (statisticsAddress);
    }

    /** Hz, of the last readStreamStatus that succeeded; 0 before. */
    std::uint32_t getSampleRate() const;

    /** Sample frames, of the last readStreamStatus that succeeded; 0 before. */
    std::uint32_t getBufferSize() const;

    //==============================================================================
    /** Keeps the stored status when it fails. */
    RequestResult readStreamStatus();

    /** Resets the driver's statistics, then the firmware's counters; errors are not reported. */
    void resetStatistics();

    /** Sends the request for the firmware's counters and does not wait: the next readFirmwareCounters has less to
        wait for.
    */
    void askForFirmwareCounters();

    /** Writes the counters only on success. */
    TransactionResult readFirmwareCounters (FirmwareCounters& counters);

    /** Succeeds when the device is there and answers. */
    TransactionResult probe();

    /** Fetches one entry of the driver's event log; past its end the entry's type is noSuchEntry, after a failure it
        means nothing. Message thread; does not take the device's lock, so that a long reading never holds up the
        notification thread.
    */
    RequestResult readEventEntry (std::uint32_t index, DriverProtocol::EventLogEntry& entry);

private:
    /** Room for the probe's reply: its fixed part and 100 words. */
    static constexpr auto replyAreaSize = DriverProtocol::probeReplyFixedSize + 400;

    void readRegistry (HDEVINFO deviceInfoSet, SP_DEVICE_INTERFACE_DATA& interfaceData);
    bool openInterface();
    void closeInterface();
    void mapStatistics();
    DriverHandle::Outcome sendCommand (DriverHandle::Kind kind, DriverProtocol::CommandEnvelope& envelope);
    TransactionResult transact (DriverHandle::Kind kind,
                                const void* input,
                                std::size_t inputSize,
                                void* output,
                                std::size_t outputSize);
    void prepareBlock (DriverProtocol::FirmwareCounterAccess access);
    TransactionResult accessFirmwareCounters (DriverHandle::Kind kind, DriverProtocol::FirmwareCounterAccess access);

    DriverProtocol::TransactionBlock block {};
    HwInfoCaps caps;
    juce::String name;
    juce::CriticalSection ownLock;
    juce::CriticalSection& lock; // our own, or the one that was passed in
    const std::string systemPath;
    const juce::String path;
    bool usable = false;
    std::uint32_t openCount = 0;
    std::atomic<bool> closedForRemoval { false };
    std::unique_ptr<DriverHandle> handle; // null: closed, or it could not be opened
    juce::CriticalSection handleLock;     // below the device's; both are held while the handle changes
    std::size_t probeReplySize = DriverProtocol::probeReplyFixedSize;
    std::array<std::uint8_t, replyAreaSize> replyArea {};
    std::array<std::uint32_t, DriverProtocol::numStreamStatusWords> streamStatus {};
    std::uint32_t statisticsAddress = 0;
    bool isMapUnanswered = false;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HwDevice)
};
