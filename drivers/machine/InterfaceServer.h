#pragma once

#include "drivers/machine/Section.h"
#include "posix/FileDescriptor.h"
#include "protocol/DriverProtocol.h"
#include "protocol/StatisticsBlock.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Machine
{

using Bytes = std::vector<std::uint8_t>;

/** One request of a client, as it came out of the socket. */
struct Request
{
    std::uint32_t controlCode;
    std::uint32_t outputSize;            /**< What the client has room for; any number at all. */
    std::span<const std::uint8_t> input; /**< Valid during the call. */
    std::uint64_t connection;            /**< Unique among all connections, former ones included. */
};

/** How a request is answered. */
struct Reply
{
    /** Success, with these bytes for the client's output buffer. */
    static Reply success (std::span<const std::uint8_t> output);

    /** Failure with a Windows error code. */
    static Reply failure (std::uint32_t error);

    /** The whole packet: the little-endian error word and the output bytes. It is sent as it is, so that a
        faulty driver can be played, too; an empty one closes the connection instead. */
    Bytes packet;

    /** Attaches the interface's section to the packet. */
    bool handsOutSection = false;
};

/** Answers the requests that an InterfaceServer receives. Called inside InterfaceServer::serve(). */
class RequestHandler
{
public:
    virtual ~RequestHandler() = default;

    /** Called once for every request, in the order of each connection; not once the device has gone. */
    virtual Reply handle (const Request& request) = 0;

    /** A connection has been closed. Not called once the device has gone. */
    virtual void closed (std::uint64_t /*connection*/) {}
};

/** What a device interface looks like in the machine folder. */
struct InterfaceSetup
{
    /** Fills the registry key in.

        @param deviceName  in UTF-8
    */
    void describeDevice (const DriverProtocol::CapabilityRecord& record, std::string_view deviceName);

    std::string machineFolder; /**< Has the folder "interfaces" already. */
    std::string name;          /**< Of the interface's folder: no slash, no dot in front. */
    bool hasRegistryKey = true;
    std::optional<Bytes> capabilities; /**< Registry value "hwinfo_caps"; none: the value is missing. */
    std::optional<Bytes> uniqueName;   /**< Registry value "unique_name", with its terminator. */
    std::size_t sectionSize = sizeof (StatisticsBlock); /**< Bytes. */
};

/** Serves one device interface in a machine folder: its folder, its registry values, its driver socket, any
    number of connections to it, and its section.

    The owner calls serve() when getDescriptor() is readable. Nothing happens in between; the server has no thread of
    its own. Any thread may use it, one at a time.
*/
class InterfaceServer
{
public:
    /** @param handler  not owned; must be there until the interface has gone */
    InterfaceServer (InterfaceSetup setup, RequestHandler& handler);

    /** Closes every connection; an interface that is present goes as with kill(). */
    ~InterfaceServer();

    InterfaceServer (const InterfaceServer&) = delete;
    InterfaceServer& operator= (const InterfaceServer&) = delete;

    //==============================================================================
    /** Makes the interface present; possible once.

        Whatever stands in the way is treated as by removeAbandoned().

        @returns an empty string, or one line that says why it could not be done; then nothing is left behind
    */
    std::string plugIn();

    /** Takes the interface away in an orderly manner.

        From now on every request fails with ERROR_DEVICE_NOT_CONNECTED, those not read yet included; then the
        interface's folder goes and the section is cut. Connections stay until the clients close them, so go on
        serving until getNumConnections() is 0.
    */
    void unplug();

    /** Takes the interface away as a crash would: the section is cut and every connection closed. */
    void kill();

    /** Removes the folder of an interface whose server was killed; one that is served, or that has anything
        else in it, stays.

        @param folderName  in the folder "interfaces", with the dot that it may begin with
        @returns           true when there is no such folder any more
    */
    static bool removeAbandoned (const std::string& machineFolder, const std::string& folderName);

    //==============================================================================
    /** Readable when serve() has something to do. Owned by the server. */
    int getDescriptor() const { return poller.get(); }

    /** Accepts connections and answers the requests that are there. Does not wait. */
    void serve();

    Section& getSection() { return section; }

    std::size_t getNumConnections() const { return connections.size(); }

    /** Connections accepted so far. */
    std::uint64_t getNumOpens() const { return numOpens; }

private:
    struct Connection
    {
        FileDescriptor socket;
        std::uint64_t number;
    };

    std::string fillFolder();
    void leave();
    void acceptConnections();
    bool receive (const Connection& connection);
    Reply answer (const Connection& connection, std::span<const std::uint8_t> packet);
    void watch (int descriptor) const;

    const InterfaceSetup setup;
    RequestHandler& handler;
    Section section;
    FileDescriptor poller, interfaces, folder, listener;
    std::map<int, Connection> connections; // by descriptor
    std::uint64_t numOpens = 0;
    bool present = false;
    bool gone = false;
};

} // namespace Machine
