#include "drivers/simulator/SimulatedDevice.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Simulation
{

using namespace Machine;

namespace
{
/* What the bytes say that they are; whether the device takes them is the model's business. */
RequestKind identify (const Request& request)
{
    DriverProtocol::CommandEnvelope envelope {};
    DriverProtocol::TransactionBlock block {};
    std::memcpy (&envelope, request.input.data(), std::min (request.input.size(), sizeof (envelope)));
    std::memcpy (&block, request.input.data(), std::min (request.input.size(), sizeof (block)));

    if (request.controlCode == DriverProtocol::IOCTL_DEVICE_COMMAND)
    {
        switch (envelope.code)
        {
            case DriverProtocol::ReadStreamStatus:
                return RequestKind::streamStatus;
            case DriverProtocol::MapStatistics:
                return RequestKind::mapStatistics;
            case DriverProtocol::ResetStatistics:
                return RequestKind::resetStatistics;
            case DriverProtocol::ReadEventEntry:
                return RequestKind::eventEntry;
            default:
                return RequestKind::other;
        }
    }

    if (request.controlCode == DriverProtocol::IOCTL_DEVICE_TRANSACTION)
    {
        if (block.code == DriverProtocol::ProbeDevice)
            return RequestKind::probe;

        if (block.code == DriverProtocol::AccessFirmwareCounters)
            return block.words[0] == DriverProtocol::ClearFirmwareCounters ? RequestKind::clearCounters
                                                                           : RequestKind::readCounters;
    }

    return RequestKind::other;
}
} // namespace

SimulatedDevice::SimulatedDevice (const DeviceConfig& config,
                                  std::string machineFolder,
                                  std::string folderName,
                                  Clock newClock)
    : clock (newClock),
      server (
          std::make_unique<InterfaceServer> (attach (config, std::move (machineFolder), std::move (folderName)), *this))
{
    advance();
}

/* Starts the model and describes the interface that it is to have. */
InterfaceSetup SimulatedDevice::attach (const DeviceConfig& config, std::string machineFolder, std::string folderName)
{
    model.reset (config, clock());

    Bytes capabilities (DeviceModel::capabilitiesSize);
    model.writeCapabilities (capabilities.data());

    const auto name = getName();
    Bytes uniqueName (name.begin(), name.end());
    uniqueName.push_back (0);

    InterfaceSetup setup;
    setup.machineFolder = std::move (machineFolder);
    setup.name = std::move (folderName);
    setup.capabilities = std::move (capabilities);
    setup.uniqueName = std::move (uniqueName);
    return setup;
}

void SimulatedDevice::advance()
{
    model.advance (clock());
    publish();
}

void SimulatedDevice::takeView()
{
    server->getSection().cut();
    server->getSection() = Machine::Section (sizeof (StatisticsBlock));
    published = {};
    publish();
}

void SimulatedDevice::publish()
{
    if (std::memcmp (&published, &model.getStatistics(), sizeof (published)) == 0)
        return;

    published = model.getStatistics();
    server->getSection().write (&published, sizeof (published));
}

void SimulatedDevice::received (const Request& request)
{
    ++numReceived[static_cast<std::size_t> (identify (request))];
}

Reply SimulatedDevice::handle (const Request& request)
{
    if (auto& failure = failures[static_cast<std::size_t> (identify (request))]; failure > 0)
    {
        if (failure != always)
            --failure;

        return Reply::failure (generalFailure);
    }

    std::array<std::uint8_t, DeviceModel::probeReplySize> output;
    const auto capacity = std::min<std::size_t> (request.outputSize, output.size());

    model.advance (clock());
    const auto result =
        model.handle (request.controlCode, request.input.data(), request.input.size(), output.data(), capacity);

    // A reset is to be seen by whoever looks after its reply.
    publish();

    if (result.error != noError)
        return Reply::failure (result.error);

    auto reply = Reply::success (std::span (output).first (result.outputSize));
    reply.handsOutSection = result.mapsStatistics;
    return reply;
}

} // namespace Simulation
