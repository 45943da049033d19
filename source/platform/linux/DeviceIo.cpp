#include "platform/linux/HandleNotification.h"
#include "platform/linux/MachineFolder.h"
#include "platform/linux/Patience.h"
#include "platform/linux/Section.h"
#include "platform/linux/Win32StandIn.h"
#include "posix/FileDescriptor.h"
#include "protocol/MachineLayout.h"
#include "protocol/RequestKind.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <poll.h>
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

/** Descriptors that one packet can bring without overflowing the receiver's room for them. */
constexpr std::size_t maximumDescriptors = 8;

/** Sections that a handle keeps; a driver that hands out more has its replies refused. */
constexpr std::size_t maximumSections = 16;

/** Where a reply carries the address of the section that came with it. */
constexpr DWORD sectionAddressOffset = offsetof (DriverProtocol::CommandEnvelope, words);
constexpr DWORD sectionAddressEnd = sectionAddressOffset + sizeof (std::uint32_t);

/** What a request's exchange with the driver came to. */
struct Reply
{
    ssize_t size = -1;         /**< Bytes of the whole packet, error word included; -1 with errno set. */
    bool truncated = false;    /**< It was longer than the room for it. */
    FileDescriptor descriptor; /**< The first one that came with it, if any. */

    /** Not what a driver may answer. */
    bool isBroken() const noexcept
    {
        return truncated || size < static_cast<ssize_t> (sizeof (MachineLayout::ReplyHeader));
    }
};

bool isTimeout (int error) noexcept
{
    return error == EAGAIN || error == EWOULDBLOCK;
}

/** How long a socket's calls may wait. To the kernel a limit of 0 would be none. */
void setLimit (const FileDescriptor& socket, int option, Patience::Duration limit) noexcept
{
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds> (limit).count() + 1;
    const timeval timeout { microseconds / 1'000'000, microseconds % 1'000'000 };
    ::setsockopt (socket.get(), SOL_SOCKET, option, &timeout, sizeof (timeout));
}

/** To the nanosecond; a signal can end it early. */
void waitUntilReadable (const FileDescriptor& socket, Patience::Duration limit) noexcept
{
    const timespec timeout { limit.count() / 1'000'000'000, limit.count() % 1'000'000'000 };
    pollfd source { socket.get(), POLLIN, 0 };
    ::ppoll (&source, 1, &timeout, nullptr);
}

/** One open device interface: the connection to its driver, and the sections the driver handed out over it. */
class Connection
{
public:
    Connection (std::string interfacePath, FileDescriptor interfaceFolder, FileDescriptor connectedSocket)
        : path (std::move (interfacePath)),
          folder (std::move (interfaceFolder)),
          socket (std::move (connectedSocket))
    {
    }

    /** One exchange; returns a Windows error code. A connection whose driver broke the protocol stays broken. */
    DWORD request (DWORD controlCode,
                   const void* input,
                   DWORD inputSize,
                   void* output,
                   DWORD outputSize,
                   DWORD& bytesReturned)
    {
        using namespace DriverProtocol;

        const std::scoped_lock locked (lock);
        const bool mapsStatistics = identifyRequest (controlCode, input, inputSize) == RequestKind::mapStatistics
                                    && outputSize >= sectionAddressEnd;
        takeLateReplies();

        if (broken)
            return ERROR_DEVICE_NOT_CONNECTED;

        const bool isSilent = ! owed.empty();

        if (isSilent && ! mapsStatistics)
            return ERROR_SEM_TIMEOUT;

        std::uint32_t driverError = 0;
        Reply reply;

        // A driver that is silent is asked for its statistics once, and nobody waits.
        if (! isSilent || ! owed.back().mapsStatistics)
        {
            if (const auto error = send (controlCode, input, inputSize, outputSize); error != ERROR_SUCCESS)
                return error;

            if (isSilent || ! waitForReply (reply, driverError, outputSize))
                owed.push_back ({ outputSize, mapsStatistics });
        }

        if (! owed.empty())
            return mapsStatistics ? promiseSection (output, bytesReturned) : ERROR_SEM_TIMEOUT;

        if (reply.isBroken())
            return breakUp();

        if (driverError != ERROR_SUCCESS)
            return driverError;

        return deliver (reply, output, outputSize, bytesReturned);
    }

    /** Lets the sections go. True when the driver still owes an answer over this connection. */
    bool close()
    {
        const std::scoped_lock locked (lock);
        promised = nullptr;
        sections.clear();
        takeLateReplies();
        return ! broken && ! owed.empty();
    }

    const std::string& getPath() const noexcept { return path; }
    const FileDescriptor& getFolder() const noexcept { return folder; }

private:
    /** A request that was given up; its answer may come at any time. */
    struct Owed
    {
        DWORD outputSize;
        bool mapsStatistics;
    };

    DWORD breakUp() noexcept
    {
        broken = true;
        return ERROR_DEVICE_NOT_CONNECTED;
    }

    /** Takes in the replies to requests that had been given up, as far as they have come. */
    void takeLateReplies()
    {
        while (! broken && ! owed.empty())
        {
            std::uint32_t error = 0;
            auto reply = receive (error, owed.front().outputSize, MSG_DONTWAIT);

            if (reply.size < 0 && isTimeout (errno))
                return;

            if (reply.isBroken())
                breakUp();
            else if (promised != nullptr && owed.front().mapsStatistics && error == ERROR_SUCCESS)
                promised->map (std::move (reply.descriptor));

            owed.pop_front();
        }
    }

    /** False when there is still none after as long as the program may wait. */
    bool waitForReply (Reply& reply, std::uint32_t& error, DWORD outputSize)
    {
        auto& patience = Patience::get();
        const auto start = std::chrono::steady_clock::now();
        const auto limit = patience.getLimit (start, wasLate);

        // One call that waits and receives is the cheapest, and the limit is nearly always what it was the last time.
        // But it counts in milliseconds, and many short waits must not become longer ones.
        const bool isShort = limit < std::chrono::milliseconds (100);

        if (isShort)
            waitUntilReadable (socket, limit);
        else if (limit != receiveLimit)
            setLimit (socket, SO_RCVTIMEO, receiveLimit = limit);

        reply = receive (error, outputSize, isShort ? MSG_DONTWAIT : 0);
        wasLate = reply.size < 0 && isTimeout (errno);
        patience.waited (start, std::chrono::steady_clock::now(), ! wasLate);
        return ! wasLate;
    }

    /** Answers a MapStatistics ahead of its driver: with an address at which the block can be read once that has
        answered.
    */
    DWORD promiseSection (void* output, DWORD& bytesReturned)
    {
        auto section = sections.size() < maximumSections ? Section::reserve() : nullptr;

        if (section == nullptr)
            return ERROR_NOT_ENOUGH_MEMORY;

        promised = section.get();
        keep (std::move (section), output);
        bytesReturned = sectionAddressEnd;
        return ERROR_SUCCESS;
    }

    DWORD send (DWORD controlCode, const void* input, DWORD inputSize, DWORD outputSize)
    {
        MachineLayout::RequestHeader header { controlCode, outputSize };
        iovec parts[] { { &header, sizeof (header) }, { const_cast<void*> (input), inputSize } };

        msghdr packet = {};
        packet.msg_iov = parts;
        packet.msg_iovlen = inputSize > 0 ? 2 : 1;

        ssize_t sent = 0;

        do
            sent = ::sendmsg (socket.get(), &packet, MSG_NOSIGNAL | MSG_DONTWAIT);
        while (sent < 0 && errno == EINTR);

        if (sent < 0)
            return isTimeout (errno) ? ERROR_SEM_TIMEOUT : breakUp();

        return ERROR_SUCCESS;
    }

    /** Fetches one packet into an error word and the buffer, and waits for it unless the flags say otherwise; of the
        descriptors that come with it, all but the first are closed.
    */
    Reply receive (std::uint32_t& error, DWORD outputSize, int flags)
    {
        buffer.resize (outputSize);
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

        if (reply.descriptor && outputSize >= sectionAddressEnd)
        {
            if (sections.size() < maximumSections)
                section = Section::make (std::move (reply.descriptor));

            if (section == nullptr)
                return ERROR_NOT_ENOUGH_MEMORY;
        }

        bytesReturned = static_cast<DWORD> (reply.size) - static_cast<DWORD> (sizeof (MachineLayout::ReplyHeader));

        if (bytesReturned > 0)
            std::memcpy (output, buffer.data(), bytesReturned);

        if (section != nullptr)
            keep (std::move (section), output);

        return ERROR_SUCCESS;
    }

    /** Puts a section's address where the caller looks for it. */
    void keep (std::unique_ptr<Section> section, void* output)
    {
        const auto address = section->getAddress();
        std::memcpy (static_cast<char*> (output) + sectionAddressOffset, &address, sizeof (address));
        sections.push_back (std::move (section));
    }

    std::mutex lock;
    const std::string path;
    const FileDescriptor folder; // held, so that no other interface can pass for this one
    const FileDescriptor socket;
    bool broken = false;
    bool wasLate = false;                   // when it was last waited for
    Patience::Duration receiveLimit { -1 }; // that the socket was given; none yet
    std::deque<Owed> owed;
    std::vector<char> buffer;
    std::vector<std::unique_ptr<Section>> sections;
    Section* promised = nullptr; // the one of them that has no file yet
};

/** Connections whose handle was closed while the driver owed an answer. The next handle of the interface goes on with
    the one that there is: what is known of the driver's silence outlives the handle, and no connections pile up.
*/
class SilentConnections
{
public:
    static SilentConnections& get()
    {
        static SilentConnections silent;
        return silent;
    }

    /** Keeps a connection, unless there is one to the same interface already. */
    void add (std::unique_ptr<Connection> connection)
    {
        const std::scoped_lock locked (lock);

        if (find (connection->getFolder()) == connections.end())
            connections.push_back (std::move (connection));
    }

    /** Hands out the connection to an interface whose driver still owes an answer; null when there is none. */
    std::unique_ptr<Connection> take (const FileDescriptor& folder)
    {
        const std::scoped_lock locked (lock);
        std::erase_if (connections, [] (const auto& connection) { return ! connection->close(); });
        const auto found = find (folder);

        if (found == connections.end())
            return nullptr;

        auto connection = std::move (*found);
        connections.erase (found);
        return connection;
    }

private:
    std::vector<std::unique_ptr<Connection>>::iterator find (const FileDescriptor& folder)
    {
        return std::find_if (connections.begin(),
                             connections.end(),
                             [&folder] (const auto& connection)
                             { return connection->getFolder().isSameFile (folder); });
    }

    std::mutex lock;
    std::vector<std::unique_ptr<Connection>> connections;
};

/** Connects through the folder's descriptor: the path itself may be longer than a socket address holds. */
FileDescriptor connectTo (const FileDescriptor& interfaceFolder)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf (address.sun_path,
                   sizeof (address.sun_path),
                   "/proc/self/fd/%d/%s",
                   interfaceFolder.get(),
                   MachineLayout::driverSocket);

    FileDescriptor socket (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));

    if (! socket)
        return {};

    // A driver that does not even take connections can be silent, too.
    auto& patience = Patience::get();
    const auto start = std::chrono::steady_clock::now();
    setLimit (socket, SO_SNDTIMEO, patience.getLimit (start, false));

    int result = 0;

    do
        result = ::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address));
    while (result != 0 && errno == EINTR);

    patience.waited (start, std::chrono::steady_clock::now(), result == 0);
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

    auto folder = MachineFolder::openInterface (path);

    if (! folder)
    {
        SetLastError (ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }

    if (auto silent = SilentConnections::get().take (folder); silent != nullptr)
        return silent.release();

    auto socket = connectTo (folder);

    if (! socket)
    {
        SetLastError (ERROR_GEN_FAILURE);
        return INVALID_HANDLE_VALUE;
    }

    return new Connection (path, std::move (folder), std::move (socket));
}

static Connection* getConnection (HANDLE handle) noexcept
{
    return handle == INVALID_HANDLE_VALUE ? nullptr : static_cast<Connection*> (handle);
}

std::string getPathOfHandle (HANDLE handle)
{
    const auto* connection = getConnection (handle);
    return connection != nullptr ? connection->getPath() : std::string();
}

BOOL CloseHandle (HANDLE handle)
{
    std::unique_ptr<Connection> connection (getConnection (handle));

    if (connection == nullptr)
        return succeedOr (ERROR_INVALID_HANDLE);

    if (connection->close())
        SilentConnections::get().add (std::move (connection));

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
