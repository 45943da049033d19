#include "device/HwDevice.h"

#include "device/DriverText.h"
#include "device/Win32NotificationWindow.h"

using namespace DriverProtocol;

static constexpr RequestResult succeeded = 0, failed = 1, refused = -1, deviceFailed = 2;

HwDevice::HwDevice (std::string pathOfInterface,
                    HDEVINFO deviceInfoSet,
                    SP_DEVICE_INTERFACE_DATA& interfaceData,
                    juce::CriticalSection* lockToUse)
    : lock (lockToUse != nullptr ? *lockToUse : ownLock),
      systemPath (std::move (pathOfInterface)),
      path (pathFromSystem (systemPath))
{
    readRegistry (deviceInfoSet, interfaceData);
}

HwDevice::~HwDevice()
{
    openCount = juce::jmin (openCount, 1u); // nobody is left to undo the others
    close();
}

void HwDevice::readRegistry (HDEVINFO deviceInfoSet, SP_DEVICE_INTERFACE_DATA& interfaceData)
{
    const auto key = SetupDiOpenDeviceInterfaceRegKey (deviceInfoSet, &interfaceData, 0, KEY_READ);

    if (key == static_cast<HKEY> (INVALID_HANDLE_VALUE))
        return;

    const auto read = [key] (const char* valueName, auto& bytes, DWORD& size)
    {
        size = static_cast<DWORD> (sizeof (bytes));
        auto* data = reinterpret_cast<BYTE*> (&bytes);
        return RegQueryValueExA (key, valueName, nullptr, nullptr, data, &size) == static_cast<LSTATUS> (ERROR_SUCCESS);
    };

    DWORD size = 0;
    usable = read (capabilitiesValue, caps.record, size);

    // A record that did not fit may have left its beginning.
    if (! usable)
        caps = {};

    // The last byte that the registry reports is the terminator, whatever is in it.
    std::array<char, 64> text {};
    const bool named = read (nameValue, text, size);
    name = named ? textFromDriver (text.data(), size > 0 ? size - 1 : 0) : juce::String (defaultName);

    RegCloseKey (key);

    // A record that claims a longer reply gets the part of it that there is room for.
    if (usable)
        probeReplySize = static_cast<std::size_t> (
            juce::jmin<std::uint64_t> (caps.getNumProbeWords() * sizeof (std::uint32_t) + probeReplyFixedSize,
                                       replyAreaSize));
}

//==============================================================================
RequestResult HwDevice::open()
{
    const juce::ScopedLock locked (lock);

    if (openCount == 0 && ! openInterface())
        return failed;

    ++openCount;
    return usable ? succeeded : failed;
}

/** Call with the lock held. @returns false when it cannot be opened, which makes the device unusable */
bool HwDevice::openInterface()
{
    const juce::ScopedLock handleChanges (handleLock);

    // What an earlier open mapped is gone, and its address may be another device's by now.
    statisticsAddress = 0;

    handle = DriverHandle::open (systemPath.c_str(), Win32NotificationWindow::findWindowHandle());

    if (handle == nullptr)
    {
        usable = false;
        return false;
    }

    mapStatistics();
    return true;
}

/** Call with the lock held. */
void HwDevice::mapStatistics()
{
    CommandEnvelope envelope {};
    envelope.code = MapStatistics;
    const auto outcome = sendCommand (DriverHandle::Kind::lasting, envelope);
    isMapUnanswered = outcome == DriverHandle::Outcome::unanswered;

    if (outcome == DriverHandle::Outcome::succeeded)
        statisticsAddress = envelope.words[0];
}

void HwDevice::close()
{
    const juce::ScopedLock locked (lock);

    if (openCount == 0 || --openCount > 0)
        return;

    closeInterface();
}

/** Call with the lock held. */
void HwDevice::closeInterface()
{
    const juce::ScopedLock handleChanges (handleLock);
    handle.reset();
    closedForRemoval = false;
}

void HwDevice::reopen()
{
    const juce::ScopedLock locked (lock);

    // An open handle would forbid the removal after all.
    if (closedForRemoval || hasOutstandingRequest())
        return;

    close();
    open();
}

//==============================================================================
void HwDevice::closeForRemoval (const DEV_BROADCAST_HANDLE& notification)
{
    const juce::ScopedLock locked (lock);

    if (closedForRemoval || handle == nullptr || ! handle->isAbout (notification))
        return;

    // First: stops readEventEntry, which holds handleLock.
    closedForRemoval = true;

    const juce::ScopedLock handleChanges (handleLock);
    handle->closeFile();
    statisticsAddress = 0;
    isMapUnanswered = false;
}

void HwDevice::openAfterRemovalFailed (const DEV_BROADCAST_HANDLE& notification)
{
    const juce::ScopedLock locked (lock);

    if (! closedForRemoval || ! handle->isAbout (notification))
        return;

    closeInterface();
    openInterface();
}

//==============================================================================
bool HwDevice::hasOutstandingRequest() const
{
    const juce::ScopedLock locked (lock);
    return handle != nullptr && handle->hasOutstandingRequest();
}

bool HwDevice::isOpen() const
{
    const juce::ScopedLock locked (lock);
    return handle != nullptr && ! closedForRemoval;
}

bool HwDevice::isYetToBeOpened() const
{
    const juce::ScopedLock locked (lock);
    return usable && openCount == 0;
}

std::uint32_t HwDevice::getStatisticsAddress() const
{
    const juce::ScopedLock locked (lock);
    return statisticsAddress;
}

std::uint32_t HwDevice::getSampleRate() const
{
    const juce::ScopedLock locked (lock);
    return streamStatus[sampleRateWord];
}

std::uint32_t HwDevice::getBufferSize() const
{
    const juce::ScopedLock locked (lock);
    return streamStatus[bufferSizeWord];
}

//==============================================================================
/** The reply overwrites the request. */
DriverHandle::Outcome HwDevice::sendCommand (DriverHandle::Kind kind, CommandEnvelope& envelope)
{
    constexpr DWORD size = sizeof (envelope);
    return handle != nullptr ? handle->request (kind, IOCTL_DEVICE_COMMAND, &envelope, size, &envelope, size)
                             : DriverHandle::Outcome::failed;
}

RequestResult HwDevice::readStreamStatus()
{
    const juce::ScopedLock locked (lock);

    CommandEnvelope envelope {};
    envelope.code = ReadStreamStatus;

    if (sendCommand (DriverHandle::Kind::look, envelope) != DriverHandle::Outcome::succeeded)
        return failed;

    std::memcpy (streamStatus.data(), envelope.words, sizeof (streamStatus));
    return succeeded;
}

void HwDevice::resetStatistics()
{
    const juce::ScopedLock locked (lock);

    CommandEnvelope envelope {};
    envelope.code = ResetStatistics;
    sendCommand (DriverHandle::Kind::act, envelope);

    accessFirmwareCounters (DriverHandle::Kind::act, ClearFirmwareCounters);
}

RequestResult HwDevice::readEventEntry (std::uint32_t index, EventLogEntry& entry)
{
    if (closedForRemoval)
        return failed;

    const juce::ScopedLock handleInUse (handleLock);
    CommandEnvelope envelope {};
    envelope.code = ReadEventEntry;
    envelope.words[0] = index;

    const auto outcome = sendCommand (DriverHandle::Kind::act, envelope);
    std::memcpy (&entry, envelope.words, sizeof (entry));
    return outcome == DriverHandle::Outcome::succeeded ? succeeded : failed;
}

//==============================================================================
/** One transaction, on an input and an output buffer that may be the same. Call with the lock held. */
TransactionResult HwDevice::transact (DriverHandle::Kind kind,
                                      const void* input,
                                      std::size_t inputSize,
                                      void* output,
                                      std::size_t outputSize)
{
    constexpr std::uint32_t refusedStatus = 0x102, otherRefusedStatus = 0xC0120090;
    constexpr std::uint32_t harmlessDeviceStatus = 12;

    if (handle == nullptr
        || handle->request (kind,
                            IOCTL_DEVICE_TRANSACTION,
                            input,
                            static_cast<DWORD> (inputSize),
                            output,
                            static_cast<DWORD> (outputSize))
               != DriverHandle::Outcome::succeeded)
        return failed;

    TransactionBlock reply;
    std::memcpy (&reply, output, TransactionBlock::headerSize);

    if (reply.status == refusedStatus || reply.status == otherRefusedStatus)
        return refused;

    if (reply.status != 0)
        return failed;

    return reply.deviceStatus == 0 || reply.deviceStatus == harmlessDeviceStatus ? succeeded : deviceFailed;
}

/** Call with the lock held. */
void HwDevice::prepareBlock (FirmwareCounterAccess access)
{
    block.length = fullLength;
    block.requestClass = 0;
    block.code = AccessFirmwareCounters;
    block.words[0] = access;
}

TransactionResult HwDevice::accessFirmwareCounters (DriverHandle::Kind kind, FirmwareCounterAccess access)
{
    prepareBlock (access);
    return transact (kind, &block, sizeof (block), &block, sizeof (block));
}

void HwDevice::askForFirmwareCounters()
{
    const juce::ScopedLock locked (lock);
    prepareBlock (ReadFirmwareCounters);

    if (handle != nullptr)
        handle->ask (IOCTL_DEVICE_TRANSACTION, &block, sizeof (block), &block, sizeof (block));
}

TransactionResult HwDevice::readFirmwareCounters (FirmwareCounters& counters)
{
    const juce::ScopedLock locked (lock);
    const auto result = accessFirmwareCounters (DriverHandle::Kind::look, ReadFirmwareCounters);

    // By now it has answered something else.
    if (isMapUnanswered && ! hasOutstandingRequest())
        mapStatistics();

    if (result == succeeded)
        std::memcpy (counters.data(), block.words, sizeof (counters));

    return result;
}

TransactionResult HwDevice::probe()
{
    const juce::ScopedLock locked (lock);

    block.length = headerLength;
    block.requestClass = 0;
    block.code = ProbeDevice;
    const auto result =
        transact (DriverHandle::Kind::act, &block, TransactionBlock::headerSize, replyArea.data(), probeReplySize);

    if (result != succeeded)
        std::memset (replyArea.data() + TransactionBlock::headerSize, 0, sizeof (std::uint32_t));

    return result;
}
