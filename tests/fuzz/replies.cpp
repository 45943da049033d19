// A driver that answers every request with whatever bytes and descriptors it likes.

#include "device/DeviceList.h"
#include "events/EventList.h"
#include "platform/linux/FileDescriptor.h"
#include "tests/fuzz/FuzzTexts.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

using namespace DriverProtocol;
using Descriptors = std::vector<FileDescriptor>;

namespace
{

/** One scripted answer. */
struct Answer
{
    explicit Answer (FuzzedDataProvider& input) : flags (input.ConsumeIntegral<std::uint8_t>())
    {
        // Most answers have to be successes for the rest of them to matter.
        if ((flags & isSuccess) != 0)
            packet.resize (sizeof (std::uint32_t));

        const auto bytes = input.ConsumeBytes<std::uint8_t> (input.ConsumeIntegral<std::uint16_t>() % 1024);
        packet.insert (packet.end(), bytes.begin(), bytes.end());
    }

    static FileDescriptor makeSection (const std::vector<std::uint8_t>& content, off_t size)
    {
        FileDescriptor section (::memfd_create ("section", MFD_CLOEXEC));
        const bool written = ::pwrite (section.get(), content.data(), content.size(), 0) >= 0;
        require (written && ::ftruncate (section.get(), size) == 0, "there is memory for a section");
        return section;
    }

    Descriptors makeDescriptors() const
    {
        constexpr off_t moreThanFits = off_t { 1 } << 33;
        const auto size = static_cast<off_t> (packet.size());
        Descriptors result;

        switch (flags & 7)
        {
            case 0:
                break;
            case 1:
                result.push_back (FileDescriptor (::open ("/dev/null", O_RDONLY | O_CLOEXEC)));
                break;
            case 2:
                result.push_back (FileDescriptor (::open ("/", O_RDONLY | O_CLOEXEC)));
                break;
            case 3:
                result.push_back (makeSection ({}, moreThanFits));
                break;
            case 4:
                for (int i = 0; i < 20; ++i)
                    result.push_back (makeSection (packet, size));

                break;
            default:
                result.push_back (makeSection (packet, size));
                break;
        }

        return result;
    }

    static constexpr std::uint8_t isSuccess = 8, cutsSection = 16;

    std::uint8_t flags;
    std::vector<std::uint8_t> packet;
};

/** Serves one interface for the whole run, one connection at a time; out of answers, it closes the connection. */
class ScriptedDriver
{
public:
    ScriptedDriver()
    {
        std::filesystem::create_directories (registry);
        const auto path = (registry.parent_path() / "driver").string();
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        require (path.size() < sizeof (address.sun_path), "the path of TMPDIR is short enough for a socket's");
        std::copy (path.begin(), path.end(), address.sun_path);

        const auto* generic = reinterpret_cast<const sockaddr*> (&address);
        const bool listens =
            ::bind (listener.get(), generic, sizeof (address)) == 0 && ::listen (listener.get(), 1) == 0;
        require (listens, "the driver listens");
        std::thread ([this] { run(); }).detach();
    }

    void setAnswers (std::deque<Answer> newAnswers)
    {
        const std::scoped_lock locked (lock);
        answers = std::move (newAnswers);
    }

    /** Waits until the driver has noticed that the program hung up. */
    void waitForEndOfConnection()
    {
        std::unique_lock locked (lock);
        changed.wait (locked, [this] { return ! isConnected; });
    }

    FuzzFolder folder;
    const std::filesystem::path registry = folder.getMachine() / "interfaces" / "device" / "registry";

private:
    void run()
    {
        for (;;)
        {
            FileDescriptor connection (::accept4 (listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            setConnected (true);
            std::array<char, 256> request;

            while (::recv (connection.get(), request.data(), request.size(), 0) > 0 && answer (connection.get()))
                continue;

            connection = {};
            setConnected (false);
        }
    }

    void setConnected (bool nowConnected)
    {
        const std::scoped_lock locked (lock);
        isConnected = nowConnected;
        changed.notify_all();
    }

    bool answer (int connection)
    {
        const std::scoped_lock locked (lock);

        if (answers.empty())
            return false;

        const auto next = std::move (answers.front());
        answers.pop_front();
        const auto sections = next.makeDescriptors();

        iovec bytes { const_cast<std::uint8_t*> (next.packet.data()), next.packet.size() };
        alignas (cmsghdr) std::array<char, CMSG_SPACE (20 * sizeof (int))> control {};
        msghdr message {};
        message.msg_iov = &bytes;
        message.msg_iovlen = 1;

        if (! sections.empty())
        {
            message.msg_control = control.data();
            message.msg_controllen = CMSG_SPACE (sections.size() * sizeof (int));
            auto* header = CMSG_FIRSTHDR (&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN (sections.size() * sizeof (int));

            for (std::size_t i = 0; i < sections.size(); ++i)
            {
                const int descriptor = sections[i].get();
                std::memcpy (CMSG_DATA (header) + i * sizeof (int), &descriptor, sizeof (int));
            }
        }

        const bool sent = ::sendmsg (connection, &message, MSG_NOSIGNAL) >= 0;

        if ((next.flags & Answer::cutsSection) != 0)
            for (const auto& section : sections)
                cut (section);

        return sent;
    }

    /** As a device that goes does; the driver's other descriptors cannot be cut. */
    static void cut (const FileDescriptor& section)
    {
        if (::ftruncate (section.get(), 0) != 0)
            return;
    }

    FileDescriptor listener { ::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0) };
    std::mutex lock;
    std::condition_variable changed;
    std::deque<Answer> answers;
    bool isConnected = false;
};

/** One operation of the program's, and what must be true of it whatever the answer was. */
void operate (HwDevice& device, std::uint8_t operation)
{
    switch (operation % 8)
    {
        case 0:
            device.open();
            device.close();
            break;

        case 1:
            device.reopen();
            break;

        case 2:
        {
            const auto rate = device.getSampleRate(), size = device.getBufferSize();
            const bool failed = device.readStreamStatus() != 0;
            require (! failed || (rate == device.getSampleRate() && size == device.getBufferSize()),
                     "a stream status that cannot be read stays");
            break;
        }

        case 3:
        {
            FirmwareCounters counters { 1, 2, 3, 4, 5 };

            if (device.readFirmwareCounters (counters) != 0)
                require (counters.fifoLevel == 1 && counters.unshown == 2 && counters.underruns == 3
                             && counters.overflows == 4 && counters.syncCount == 5,
                         "counters that cannot be read stay");

            break;
        }

        case 4:
            device.probe();
            break;

        case 5:
            device.resetStatistics();
            break;

        case 6:
        {
            EventLogEntry entry {};
            const bool failed = device.readEventEntry (operation, entry) != 0;
            require (! failed || (entry.timestamp == operation && entry.type == 0),
                     "a request that fails brings nothing");
            break;
        }

        default:
        {
            const EventList events ({ HwDevice::Ptr (&device) }, 0);
            require (events.getDeviceNames().size() == 1, "every log has its device's name");
            break;
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static auto& driver = *new ScriptedDriver;

    FuzzedDataProvider input (data, size);
    std::vector<std::uint8_t> record (sizeof (HwInfoCaps));
    const auto counts = input.ConsumeBytes<std::uint8_t> (8);
    std::copy (counts.begin(),
               counts.end(),
               record.begin() + offsetof (DriverProtocol::CapabilityRecord, firstProbeCount));
    writeFile (driver.registry / "hwinfo_caps", record);

    const auto operations = input.ConsumeRandomLengthString (maximumTextLength);
    std::deque<Answer> answers;

    while (input.remaining_bytes() > 0)
        answers.emplace_back (input);

    driver.setAnswers (std::move (answers));

    // The first one leaves the toolkit's message queue open for ever.
    static const auto firstEvents = std::make_unique<EventList> (juce::Array<EventRecord>(), juce::StringArray());
    const auto numDescriptors = countDescriptors();

    {
        DeviceList devices;
        require (devices.getNumDevices() == 1, "the interface is found");
        const auto device = devices.getDevice (0);
        Column column (device->getName());
        device->open();

        for (const auto operation : operations)
        {
            operate (*device, static_cast<std::uint8_t> (operation));

            const auto address = static_cast<std::uintptr_t> (device->getStatisticsAddress());
            column.update (reinterpret_cast<const StatisticsBlock*> (address), 0.0001);
            requireNumbers (column);
        }
    }

    driver.waitForEndOfConnection();
    require (countDescriptors() == numDescriptors, "no descriptor of the driver's stays behind");
    return 0;
}
