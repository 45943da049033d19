#include "drivers/machine/InterfaceServer.h"

#include "drivers/machine/CheckedRequest.h"
#include "protocol/DriverProtocol.h"
#include "protocol/MachineLayout.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace Machine
{

using namespace DriverProtocol;
using namespace MachineLayout;

namespace
{
// The largest request that a client has is far smaller; what is longer is cut and refused.
constexpr std::size_t maximumPacketSize = 4096;

std::string describeError (const std::string& what)
{
    return what + ": " + std::strerror (errno);
}

/* A socket's path may be longer than its address has room for, so it is named through its folder's
    descriptor. */
sockaddr_un socketAddress (int folderDescriptor)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;

    const auto path = "/proc/self/fd/" + std::to_string (folderDescriptor) + "/" + driverSocket;
    std::memcpy (address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

const sockaddr* asGeneric (const sockaddr_un& address)
{
    return reinterpret_cast<const sockaddr*> (&address);
}

FileDescriptor openFolder (int parent, const std::string& name)
{
    return FileDescriptor (::openat (parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

FileDescriptor openInterfaces (const std::string& machineFolder)
{
    return openFolder (AT_FDCWD, machineFolder + "/" + interfacesFolder);
}

FileDescriptor makeSocket()
{
    return FileDescriptor (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool isServed (int folderDescriptor)
{
    const auto address = socketAddress (folderDescriptor);
    const auto client = makeSocket();
    return ::connect (client.get(), asGeneric (address), sizeof (address)) == 0 || errno == EAGAIN;
}

bool writeFile (int folder, const char* path, const Bytes& bytes)
{
    const FileDescriptor file (::openat (folder, path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));

    return file && ::write (file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t> (bytes.size());
}

/* Removes what an interface consists of; a folder with anything else in it stays. */
void removeFolder (int interfaces, const std::string& name)
{
    const auto registry = name + "/" + registryFolder;

    for (const auto& file :
         { registry + "/" + capabilitiesValue, registry + "/" + nameValue, name + "/" + driverSocket })
        ::unlinkat (interfaces, file.c_str(), 0);

    ::unlinkat (interfaces, registry.c_str(), AT_REMOVEDIR);
    ::unlinkat (interfaces, name.c_str(), AT_REMOVEDIR);
}
} // namespace

//==============================================================================
Reply Reply::success (std::span<const std::uint8_t> output)
{
    auto reply = failure (noError);
    reply.packet.insert (reply.packet.end(), output.begin(), output.end());
    return reply;
}

Reply Reply::failure (std::uint32_t error)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*> (&error);
    return { Bytes (bytes, bytes + sizeof (error)) };
}

//==============================================================================
void InterfaceSetup::describeDevice (const DriverProtocol::CapabilityRecord& record, std::string_view deviceName)
{
    const auto* bytes = reinterpret_cast<const std::uint8_t*> (&record);
    capabilities = Bytes (bytes, bytes + sizeof (record));
    uniqueName = Bytes (deviceName.begin(), deviceName.end());
    uniqueName->push_back (0);
}

//==============================================================================
InterfaceServer::InterfaceServer (InterfaceSetup newSetup, RequestHandler& newHandler)
    : setup (std::move (newSetup)),
      handler (newHandler),
      section (setup.sectionSize),
      poller (::epoll_create1 (EPOLL_CLOEXEC))
{
}

InterfaceServer::~InterfaceServer()
{
    kill();
}

std::string InterfaceServer::plugIn()
{
    if (present || gone)
        return "the interface has been plugged in before";

    if (setup.name.empty() || setup.name.front() == '.' || setup.name.find ('/') != std::string::npos)
        return "\"" + setup.name + "\" cannot be an interface's name";

    if (! section.isOpen() || ! poller)
        return describeError ("no memory for an interface");

    interfaces = openInterfaces (setup.machineFolder);

    if (! interfaces)
        return describeError (setup.machineFolder + "/" + interfacesFolder);

    const auto hiddenName = "." + setup.name;

    if (! removeAbandoned (setup.machineFolder, setup.name) || ! removeAbandoned (setup.machineFolder, hiddenName))
        return "interface " + setup.name + " exists already";

    if (::mkdirat (interfaces.get(), hiddenName.c_str(), 0700) != 0)
        return describeError (hiddenName);

    auto error = fillFolder();

    if (error.empty() && ::renameat (interfaces.get(), hiddenName.c_str(), interfaces.get(), setup.name.c_str()) != 0)
        error = describeError (setup.name);

    if (! error.empty())
    {
        listener = {};
        removeFolder (interfaces.get(), hiddenName);
        return error;
    }

    present = true;
    return {};
}

std::string InterfaceServer::fillFolder()
{
    folder = openFolder (interfaces.get(), "." + setup.name);

    if (setup.hasRegistryKey)
    {
        const auto writeValue = [this] (const std::string& name, const std::optional<Bytes>& bytes)
        { return ! bytes || writeFile (folder.get(), (registryFolder + ("/" + name)).c_str(), *bytes); };

        if (::mkdirat (folder.get(), registryFolder, 0700) != 0 || ! writeValue (capabilitiesValue, setup.capabilities)
            || ! writeValue (nameValue, setup.uniqueName))
            return describeError (registryFolder);
    }

    const auto address = socketAddress (folder.get());
    listener = makeSocket();

    if (! listener || ::bind (listener.get(), asGeneric (address), sizeof (address)) != 0
        || ::listen (listener.get(), SOMAXCONN) != 0)
        return describeError (driverSocket);

    watch (listener.get());
    return {};
}

bool InterfaceServer::removeAbandoned (const std::string& machineFolder, const std::string& folderName)
{
    const auto parent = openInterfaces (machineFolder);

    if (const auto found = openFolder (parent.get(), folderName); found && isServed (found.get()))
        return false;

    removeFolder (parent.get(), folderName);

    struct stat status;
    return ::fstatat (parent.get(), folderName.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0;
}

//==============================================================================
void InterfaceServer::unplug()
{
    if (! present)
        return;

    // Its clients are to be told.
    acceptConnections();
    leave();
}

void InterfaceServer::kill()
{
    if (! present)
        return;

    // Nobody is told.
    connections.clear();
    leave();
}

void InterfaceServer::leave()
{
    // Before the folder goes: a client that probes on the news of it must find the device gone.
    present = false;
    gone = true;
    ::renameat (interfaces.get(), setup.name.c_str(), interfaces.get(), ("." + setup.name).c_str());
    section.cut();
    listener = {};
    removeFolder (interfaces.get(), "." + setup.name);
}

//==============================================================================
void InterfaceServer::watch (int descriptor) const
{
    epoll_event event {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    ::epoll_ctl (poller.get(), EPOLL_CTL_ADD, descriptor, &event);
}

void InterfaceServer::serve()
{
    std::array<epoll_event, 16> ready {};
    const auto numReady = ::epoll_wait (poller.get(), ready.data(), static_cast<int> (ready.size()), 0);

    for (int i = 0; i < numReady; ++i)
    {
        const auto descriptor = ready[static_cast<std::size_t> (i)].data.fd;

        if (descriptor == listener.get())
        {
            acceptConnections();
            continue;
        }

        const auto found = connections.find (descriptor);

        if (found == connections.end() || receive (found->second))
            continue;

        if (! gone)
            handler.closed (found->second.number);

        connections.erase (found);
    }
}

void InterfaceServer::acceptConnections()
{
    while (FileDescriptor socket { ::accept4 (listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK) })
    {
        const auto descriptor = socket.get();
        watch (descriptor);
        connections.emplace (descriptor, Connection { std::move (socket), ++numOpens });
    }
}

/* Returns false when the connection is to be closed. */
bool InterfaceServer::receive (const Connection& connection)
{
    std::array<std::uint8_t, maximumPacketSize> buffer;
    const auto size = ::recv (connection.socket.get(), buffer.data(), buffer.size(), MSG_TRUNC);

    if (size < 0)
        return errno == EAGAIN || errno == EINTR;

    const auto length = static_cast<std::size_t> (size);

    if (length < sizeof (RequestHeader))
        return false;

    auto reply = length > buffer.size() ? Reply::failure (invalidParameter)
                                        : answer (connection, std::span (buffer).first (length));

    if (reply.packet.empty())
        return false;

    iovec bytes { reply.packet.data(), reply.packet.size() };
    alignas (cmsghdr) std::array<char, CMSG_SPACE (sizeof (int))> control {};
    msghdr message {};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;

    if (reply.handsOutSection)
    {
        const auto descriptor = section.getReadOnlyDescriptor();
        message.msg_control = control.data();
        message.msg_controllen = control.size();

        auto* header = CMSG_FIRSTHDR (&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN (sizeof (descriptor));
        std::memcpy (CMSG_DATA (header), &descriptor, sizeof (descriptor));
    }

    // A client that lets the socket fill up does not want the replies.
    return ::sendmsg (connection.socket.get(), &message, MSG_NOSIGNAL) >= 0;
}

Reply InterfaceServer::answer (const Connection& connection, std::span<const std::uint8_t> packet)
{
    RequestHeader header;
    std::memcpy (&header, packet.data(), sizeof (header));

    return gone ? Reply::failure (deviceNotConnected)
                : handler.handle (
                    { header.controlCode, header.outputSize, packet.subspan (sizeof (header)), connection.number });
}

} // namespace Machine
