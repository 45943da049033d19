#include "platform/DriverLine.h"

#include "platform/linux/MachineFolder.h"
#include "platform/linux/Section.h"
#include "posix/FileDescriptor.h"
#include "protocol/DriverProtocol.h"
#include "protocol/MachineLayout.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

namespace
{

/** Descriptors that one packet can bring without overflowing the receiver's room for them. */
constexpr std::size_t maximumDescriptors = 8;

/** Sections that a line keeps; a driver that hands out more has its replies refused. */
constexpr std::size_t maximumSections = 16;

/** Where a reply carries the address of the section that came with it. */
constexpr std::size_t sectionAddressOffset = offsetof (DriverProtocol::CommandEnvelope, words);
constexpr std::size_t sectionAddressEnd = sectionAddressOffset + sizeof (std::uint32_t);

/** Tells a socket how long a call may wait: SO_SNDTIMEO or SO_RCVTIMEO. */
void setTimeout (const FileDescriptor& socket, int option, DriverLine::Duration limit)
{
    // To the kernel a limit of 0 would be none.
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds> (limit).count() + 1;
    const timeval timeout { microseconds / 1'000'000, microseconds % 1'000'000 };
    ::setsockopt (socket.get(), SOL_SOCKET, option, &timeout, sizeof (timeout));
}

/** A connection to a driver process, and the sections that it handed out over it. */
class SocketLine final : public DriverLine
{
public:
    SocketLine (FileDescriptor connectedSocket, HDEVNOTIFY identityOfFolder)
        : socket (std::move (connectedSocket)),
          identity (identityOfFolder)
    {
    }

    bool send (DWORD controlCode, const void* input, DWORD inputSize, const void*, DWORD outputSize) override
    {
        MachineLayout::RequestHeader header { controlCode, outputSize };
        iovec parts[] { { &header, sizeof (header) }, { const_cast<void*> (input), inputSize } };

        msghdr packet {};
        packet.msg_iov = parts;
        packet.msg_iovlen = inputSize > 0 ? 2 : 1;
        outputSizeAsked = outputSize;

        // There is room: the driver has taken the request that came before.
        return socket
               && retryOnSignal ([&] { return ::sendmsg (socket.get(), &packet, MSG_NOSIGNAL | MSG_DONTWAIT); }) >= 0;
    }

    bool receive (DriverAnswer& answer, Duration limit) override
    {
        const bool mayWait = limit > limit.zero();

        if (mayWait && std::exchange (longestWait, limit) != limit)
            setTimeout (socket, SO_RCVTIMEO, limit);

        MachineLayout::ReplyHeader error = 0;
        answer.bytes.resize (outputSizeAsked);
        alignas (cmsghdr) std::array<char, CMSG_SPACE (maximumDescriptors * sizeof (int))> control;
        iovec parts[] { { &error, sizeof (error) }, { answer.bytes.data(), answer.bytes.size() } };

        msghdr packet {};
        packet.msg_iov = parts;
        packet.msg_iovlen = 2;
        packet.msg_control = control.data();
        packet.msg_controllen = control.size();

        const int flags = MSG_CMSG_CLOEXEC | (mayWait ? 0 : MSG_DONTWAIT);
        const auto size = retryOnSignal ([&] { return ::recvmsg (socket.get(), &packet, flags); });

        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return false;

        auto descriptor = size >= 0 ? takeDescriptor (packet) : FileDescriptor();
        const bool isBroken = size < static_cast<ssize_t> (sizeof (error)) || (packet.msg_flags & MSG_TRUNC) != 0;

        // A driver that broke the protocol, or is gone, is not listened to any more.
        if (isBroken)
            socket = {};

        answer.error = isBroken ? ERROR_DEVICE_NOT_CONNECTED : error;
        answer.bytes.resize (answer.error == ERROR_SUCCESS ? static_cast<std::size_t> (size) - sizeof (error) : 0);

        if (answer.error == ERROR_SUCCESS && descriptor && outputSizeAsked >= sectionAddressEnd)
            mapSection (std::move (descriptor), answer);

        return true;
    }

    bool isAbout (const DEV_BROADCAST_HANDLE& notification) const override
    {
        return notification.dbch_hdevnotify == identity;
    }

    bool close (Duration) override
    {
        sections.clear();
        socket = {};
        return true;
    }

private:
    template <typename Call>
    static ssize_t retryOnSignal (const Call& call)
    {
        for (;;)
            if (const ssize_t result = call(); result >= 0 || errno != EINTR)
                return result;
    }

    /** The first one that came with a packet; the others are closed. */
    static FileDescriptor takeDescriptor (msghdr& packet)
    {
        FileDescriptor first;

        for (auto* part = CMSG_FIRSTHDR (&packet); part != nullptr; part = CMSG_NXTHDR (&packet, part))
        {
            if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
                continue;

            const auto count = (part->cmsg_len - CMSG_LEN (0)) / sizeof (int);

            for (std::size_t i = 0; i < count; ++i)
            {
                int descriptor = -1;
                std::memcpy (&descriptor, CMSG_DATA (part) + i * sizeof (int), sizeof (int));
                FileDescriptor owned (descriptor);

                if (! first)
                    first = std::move (owned);
            }
        }

        return first;
    }

    /** Puts the section's address where the caller looks for it. */
    void mapSection (FileDescriptor descriptor, DriverAnswer& answer)
    {
        auto section = sections.size() < maximumSections ? Section::make (std::move (descriptor)) : nullptr;

        if (section == nullptr)
        {
            answer = { ERROR_NOT_ENOUGH_MEMORY, {} };
            return;
        }

        const auto address = section->getAddress();
        answer.bytes.resize (std::max (answer.bytes.size(), sectionAddressEnd));
        std::memcpy (answer.bytes.data() + sectionAddressOffset, &address, sizeof (address));
        sections.push_back (std::move (section));
    }

    FileDescriptor socket; // none once it is closed or the driver has broken the protocol
    const HDEVNOTIFY identity;
    DWORD outputSizeAsked = 0;
    Duration longestWait {}; // that the socket has been told
    std::vector<std::unique_ptr<Section>> sections;
};

} // namespace

//==============================================================================
std::unique_ptr<DriverLine> DriverLine::open (const char* path, HWND, Duration limit, bool& answered)
{
    const auto folder = MachineFolder::openInterface (path);
    FileDescriptor socket (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    struct stat status
    {
    };
    answered = true;

    if (! folder || ! socket || ::fstat (folder.get(), &status) != 0)
        return nullptr;

    // Through the folder's descriptor: the path itself may be longer than a socket address holds.
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::snprintf (address.sun_path,
                   sizeof (address.sun_path),
                   "/proc/self/fd/%d/%s",
                   folder.get(),
                   MachineLayout::driverSocket);

    // A driver that does not even take connections can be silent, too.
    setTimeout (socket, SO_SNDTIMEO, limit);
    int result = 0;

    do
        result = ::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address));
    while (result != 0 && errno == EINTR);

    answered = result == 0 || errno != EAGAIN;

    // Nobody but tests has notifications to send about an open interface: they name it by its folder.
    const auto identity = reinterpret_cast<HDEVNOTIFY> (static_cast<std::uintptr_t> (status.st_ino));
    return result == 0 ? std::make_unique<SocketLine> (std::move (socket), identity) : nullptr;
}
