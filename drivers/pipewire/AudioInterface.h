#pragma once

#include "drivers/machine/InterfaceServer.h"
#include "drivers/pipewire/DeviceFigures.h"
#include "protocol/DriverProtocol.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace PipeWire
{

/** One of PipeWire's audio devices behind a device interface. Used by one thread at a time. */
class AudioInterface final : public Machine::RequestHandler
{
public:
    /** What is known of a device before it runs. */
    struct Description
    {
        std::uint32_t number;   /**< Identifies the nodes that belong to it. */
        std::string folderName; /**< See Machine::InterfaceSetup. */
        std::string name;       /**< UTF-8; cut to what the registry value may hold. */
        std::uint32_t vendor = 0, type = 0;
        std::string path; /**< Below sysfs, of a FireWire device; empty where it is not known. */
    };

    AudioInterface (const Description& description, const std::string& machineFolder);

    DeviceFigures& getFigures() { return figures; }
    const std::string& getName() const { return name; }
    const std::string& getPath() const { return path; }

    /** Shows the statistics to whoever maps them. */
    void publish();

    Machine::InterfaceServer& getServer() const { return *server; }

    /** Hands over the server of a device that has left; the interface can then be destroyed. */
    std::unique_ptr<Machine::InterfaceServer> releaseServer() { return std::move (server); }

    Machine::Reply handle (const Machine::Request& request) override;
    void closed (std::uint64_t connection) override { readers.erase (connection); }

private:
    void readEvent (std::uint64_t connection, std::uint32_t index, DriverProtocol::CommandEnvelope& envelope);

    const std::string name;
    const std::string path;
    DeviceFigures figures;
    std::map<std::uint64_t, Machine::EventReader> readers; // by connection, while they read
    std::unique_ptr<Machine::InterfaceServer> server;
};

} // namespace PipeWire
