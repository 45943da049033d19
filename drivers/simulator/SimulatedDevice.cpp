#include "drivers/simulator/SimulatedDevice.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Simulation
{

using namespace Machine;

/* The place of a request's kind in the arrays that have one for each. */
static std::size_t getIndex (const Request& request)
{
    return static_cast<std::size_t> (
        DriverProtocol::identifyRequest (request.controlCode, request.input.data(), request.input.size()));
}

SimulatedDevice::SimulatedDevice (const DeviceConfig& config,
                                  std::string machineFolder,
                                  std::string folderName,
                                  Clock newClock)
    : clock (std::move (newClock)),
      server (
          std::make_unique<InterfaceServer> (attach (config, std::move (machineFolder), std::move (folderName)), *this))
{
    advance();
}

/* Starts the model and describes the interface that it is to have. */
InterfaceSetup SimulatedDevice::attach (const DeviceConfig& config, std::string machineFolder, std::string folderName)
{
    model.reset (config, clock());

    const auto record = model.getCapabilities();
    const auto* bytes = reinterpret_cast<const std::uint8_t*> (&record);

    const auto name = getName();
    Bytes uniqueName (name.begin(), name.end());
    uniqueName.push_back (0);

    InterfaceSetup setup;
    setup.machineFolder = std::move (machineFolder);
    setup.name = std::move (folderName);
    setup.capabilities = Bytes (bytes, bytes + sizeof (record));
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
    ++numReceived[getIndex (request)];
}

Reply SimulatedDevice::handle (const Request& request)
{
    if (auto& failure = failures[getIndex (request)]; failure > 0)
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
