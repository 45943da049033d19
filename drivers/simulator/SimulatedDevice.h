#pragma once

#include "drivers/machine/InterfaceServer.h"
#include "drivers/simulator/model/DeviceModel.h"
#include "protocol/RequestKind.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Simulation
{

/** Tells the time in ticks of the machine folder's counter. */
using Clock = std::function<std::int64_t()>;

using DriverProtocol::RequestKind;

/** A device model behind a device interface. Used by one thread at a time. */
class SimulatedDevice final : public Machine::RequestHandler
{
public:
    /** For failNext(): until it is called again. */
    static constexpr std::uint32_t always = 0xFFFFFFFF;

    SimulatedDevice (const DeviceConfig& config, const std::string& machineFolder, std::string folderName, Clock clock);

    /** Moves the model to the present and shows its statistics to whoever maps them. */
    void advance();

    /** Makes so many requests of a kind fail with ERROR_GEN_FAILURE; 0 ends it. */
    void failNext (RequestKind kind, std::uint32_t count) { failures[static_cast<std::size_t> (kind)] = count; }

    /** Requests of a kind so far, answered or not. */
    std::uint64_t getNumReceived (RequestKind kind) const { return numReceived[static_cast<std::size_t> (kind)]; }

    std::string_view getName() const { return model.getConfig().name; }

    /** When false, opening the device's interface fails although it is present. */
    void setOpening (bool shouldOpen) const;

    /** Takes the statistics block from those who map it; a new open maps another one. */
    void takeView();

    DeviceModel& getModel() { return model; }
    Machine::InterfaceServer& getServer() const { return *server; }

    /** Hands over the server of a device that has left; the device can then be destroyed. */
    std::unique_ptr<Machine::InterfaceServer> releaseServer() { return std::move (server); }

    Machine::Reply handle (const Machine::Request& request) override;

private:
    Machine::InterfaceSetup describe (const std::string& machineFolder) const;
    void publish();

    const std::string folderName;
    const std::string interfaces; // the folder that the interface's is in
    const Clock clock;
    DeviceModel model;
    StatisticsBlock published {};
    std::array<std::uint64_t, DriverProtocol::numRequestKinds> numReceived {};
    std::array<std::uint32_t, DriverProtocol::numRequestKinds> failures {};
    std::unique_ptr<Machine::InterfaceServer> server;
};

} // namespace Simulation
