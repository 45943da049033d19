#include "platform/linux/FileDescriptor.h"
#include "platform/linux/MachineFolder.h"
#include "platform/linux/Section.h"
#include "platform/linux/Win32StandIn.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <vector>

//==============================================================================
static thread_local DWORD lastError = ERROR_SUCCESS;

DWORD GetLastError()
{
    return lastError;
}

void SetLastError (DWORD error)
{
    lastError = error;
}

namespace
{

/** Below the time that a quitting program leaves its notification thread. */
constexpr timeval answerTimeout { 1, 500000 };

/** Descriptors that one packet can bring without overflowing the receiver's room for them. */
constexpr std::size_t maximumDescriptors = 8;

/** Sections that a handle keeps; a driver that hands out more has its replies refused. */
constexpr std::size_t maximumSections = 16;

/** Where a reply carries the address of the section that came with it. */
constexpr DWORD sectionAddressOffset = 12;

/** What a request's exchange with the driver came to. */
struct Reply
{
    ssize_t size = -1;         /**< Bytes of the whole packet, error word included; -1 with errno set. */
    bool truncated = false;    /**< It was longer than the room for it. */
    FileDescriptor descriptor; /**< The first one that came with it, if any. */

    /** Not what a driver may answer. */
    bool isBroken() const noexcept { return truncated || size < static_cast<ssize_t> (sizeof (std::uint32_t)); }
};

/** One open device interface: the connection to its driver, and the sections the driver handed out over it. */
class Connection
{
public:
    explicit Connection (FileDescriptor connectedSocket) : socket (std::move (connectedSocket)) {}

    /** One exchange; returns a Windows error code. A connection whose driver broke the protocol stays broken. */
    DWORD request (DWORD controlCode,
                   const void* input,
                   DWORD inputSize,
                   void* output,
                   DWORD outputSize,
                   DWORD& bytesReturned)
    {
        const std::scoped_lock locked (lock);

        if (const auto error = dropLateReply(); error != ERROR_SUCCESS)
            return error;

        if (const auto error = send (controlCode, input, inputSize, outputSize); error != ERROR_SUCCESS)
            return error;

        std::uint32_t driverError = 0;
        buffer.resize (outputSize);
        auto reply = receive (driverError, 0);

        if (reply.size < 0 && isTimeout (errno))
        {
            replyIsDue = true;
            return ERROR_SEM_TIMEOUT;
        }

        if (reply.isBroken())
            return breakUp();

        if (driverError != ERROR_SUCCESS)
            return driverError;

        return deliver (reply, output, outputSize, bytesReturned);
    }

private:
    static bool isTimeout (int error) noexcept { return error == EAGAIN || error == EWOULDBLOCK; }

    DWORD breakUp() noexcept
    {
        broken = true;
        return ERROR_DEVICE_NOT_CONNECTED;
    }

    /** Takes in the reply to a request that had been given up, before anything else is asked. */
    DWORD dropLateReply()
    {
        if (replyIsDue)
        {
            std::uint32_t ignored = 0;
            const auto reply = receive (ignored, MSG_DONTWAIT);

            if (reply.size < 0 && isTimeout (errno))
                return ERROR_SEM_TIMEOUT;

            if (reply.isBroken())
                return breakUp();

            replyIsDue = false;
        }

        return broken ? ERROR_DEVICE_NOT_CONNECTED : ERROR_SUCCESS;
    }

    DWORD send (DWORD controlCode, const void* input, DWORD inputSize, DWORD outputSize)
    {
        std::uint32_t header[] { controlCode, outputSize };
        iovec parts[] { { header, sizeof (header) }, { const_cast<void*> (input), inputSize } };

        msghdr packet = {};
        packet.msg_iov = parts;
        packet.msg_iovlen = inputSize > 0 ? 2 : 1;

        ssize_t sent = 0;

        do
            sent = ::sendmsg (socket.get(), &packet, MSG_NOSIGNAL);
        while (sent < 0 && errno == EINTR);

        if (sent < 0)
            return isTimeout (errno) ? ERROR_SEM_TIMEOUT : breakUp();

        return ERROR_SUCCESS;
    }

    /** Fetches one packet into an error word and the buffer. Descriptors beyond the first are closed. */
    Reply receive (std::uint32_t& error, int flags)
    {
        alignas (cmsghdr) std::array<char, CMSG_SPACE (maximumDescriptors * sizeof (int))> control {};
        iovec parts[] { { &error, sizeof (error) }, { buffer.data(), buffer.size() } };

        msghdr packet = {};
        packet.msg_iov = parts;
        packet.msg_iovlen = 2;
        packet.msg_control = control.data();
        packet.msg_controllen = control.size();

        Reply reply;

        do
            reply.size = ::recvmsg (socket.get(), &packet, flags | MSG_CMSG_CLOEXEC);
        while (reply.size < 0 && errno == EINTR);

        if (reply.size < 0)
            return reply;

        reply.truncated = (packet.msg_flags & MSG_TRUNC) != 0;

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

                if (! reply.descriptor)
                    reply.descriptor = std::move (owned);
            }
        }

        return reply;
    }

    DWORD deliver (Reply& reply, void* output, DWORD outputSize, DWORD& bytesReturned)
    {
        std::unique_ptr<Section> section;

        if (reply.descriptor && outputSize >= sectionAddressOffset + sizeof (std::uint32_t))
        {
            if (sections.size() < maximumSections)
                section = Section::map (std::move (reply.descriptor));

            if (section == nullptr)
                return ERROR_NOT_ENOUGH_MEMORY;
        }

        bytesReturned = static_cast<DWORD> (reply.size) - static_cast<DWORD> (sizeof (std::uint32_t));

        if (bytesReturned > 0)
            std::memcpy (output, buffer.data(), bytesReturned);

        if (section != nullptr)
        {
            const auto address = section->getAddress();
            std::memcpy (static_cast<char*> (output) + sectionAddressOffset, &address, sizeof (address));
            sections.push_back (std::move (section));
        }

        return ERROR_SUCCESS;
    }

    std::mutex lock;
    FileDescriptor socket;
    bool broken = false;
    bool replyIsDue = false; // to a request that was given up
    std::vector<char> buffer;
    std::vector<std::unique_ptr<Section>> sections;
};

/** Connects through the folder's descriptor: the path itself may be longer than a socket address holds. */
FileDescriptor connectTo (const FileDescriptor& interfaceFolder)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf (address.sun_path, sizeof (address.sun_path), "/proc/self/fd/%d/driver", interfaceFolder.get());

    FileDescriptor socket (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));

    if (! socket)
        return {};

    // The time-outs hold for connecting, sending and receiving alike.
    ::setsockopt (socket.get(), SOL_SOCKET, SO_SNDTIMEO, &answerTimeout, sizeof (answerTimeout));
    ::setsockopt (socket.get(), SOL_SOCKET, SO_RCVTIMEO, &answerTimeout, sizeof (answerTimeout));

    int result = 0;

    do
        result = ::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address));
    while (result != 0 && errno == EINTR);

    return result == 0 ? std::move (socket) : FileDescriptor();
}

BOOL succeedOr (DWORD error) noexcept
{
    if (error == ERROR_SUCCESS)
        return TRUE;

    SetLastError (error);
    return FALSE;
}

} // namespace

//==============================================================================
HANDLE CreateFileA (const char* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD disposition, DWORD, HANDLE)
{
    if (path == nullptr || disposition != OPEN_EXISTING)
    {
        SetLastError (ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }

    const auto folder = MachineFolder::openInterface (path);

    if (! folder)
    {
        SetLastError (ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }

    auto socket = connectTo (folder);

    if (! socket)
    {
        SetLastError (ERROR_GEN_FAILURE);
        return INVALID_HANDLE_VALUE;
    }

    return new Connection (std::move (socket));
}

static Connection* getConnection (HANDLE handle) noexcept
{
    return handle == INVALID_HANDLE_VALUE ? nullptr : static_cast<Connection*> (handle);
}

BOOL CloseHandle (HANDLE handle)
{
    auto* connection = getConnection (handle);

    if (connection == nullptr)
        return succeedOr (ERROR_INVALID_HANDLE);

    delete connection;
    return TRUE;
}

BOOL DeviceIoControl (HANDLE handle,
                      DWORD controlCode,
                      void* input,
                      DWORD inputSize,
                      void* output,
                      DWORD outputSize,
                      DWORD* bytesReturned,
                      OVERLAPPED*)
{
    auto* connection = getConnection (handle);

    if (connection == nullptr)
        return succeedOr (ERROR_INVALID_HANDLE);

    DWORD returned = 0;
    const auto error = connection->request (controlCode, input, inputSize, output, outputSize, returned);

    if (bytesReturned != nullptr)
        *bytesReturned = returned;

    return succeedOr (error);
}
