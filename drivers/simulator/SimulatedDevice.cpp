#include "drivers/simulator/SimulatedDevice.h"

#include "protocol/MachineLayout.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Simulation
{

using namespace Machine;

SimulatedDevice::SimulatedDevice (const DeviceConfig& config,
                                  const std::string& machineFolder,
                                  std::string newFolderName,
                                  Clock newClock)
    : folderName (std::move (newFolderName)),
      interfaces (machineFolder + "/" + MachineLayout::interfacesFolder + "/"),
      clock (std::move (newClock)),
      model (config, clock()),
      server (std::make_unique<InterfaceServer> (describe (machineFolder), *this))
{
    advance();
}

InterfaceSetup SimulatedDevice::describe (const std::string& machineFolder) const
{
    InterfaceSetup setup;
    setup.machineFolder = machineFolder;
    setup.name = folderName;
    setup.describeDevice (model.getCapabilities(), getName());
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
    const auto statistics = model.getStatistics();

    if (std::memcmp (&published, &statistics, sizeof (published)) == 0)
        return;

    published = statistics;
    server->getSection().write (&published, sizeof (published));
}

/* A client opens the interface by its socket. Meanwhile that lies where the folder of an interface that is not present
    would: the next simulator there clears it away if this one is killed. */
void SimulatedDevice::setOpening (bool shouldOpen) const
{
    const std::filesystem::path shown = interfaces + folderName, hidden = interfaces + "." + folderName;
    std::error_code ignored;

    if (shouldOpen)
    {
        std::filesystem::rename (hidden / MachineLayout::driverSocket, shown / MachineLayout::driverSocket, ignored);
        std::filesystem::remove (hidden, ignored);
    }
    else
    {
        std::filesystem::create_directory (hidden, ignored);
        std::filesystem::rename (shown / MachineLayout::driverSocket, hidden / MachineLayout::driverSocket, ignored);
    }
}

Reply SimulatedDevice::handle (const Request& request)
{
    const auto index = static_cast<std::size_t> (
        DriverProtocol::identifyRequest (request.controlCode, request.input.data(), request.input.size()));
    ++numReceived[index];

    if (auto& failure = failures[index]; failure > 0)
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

    // The reset must be visible once its reply has arrived.
    publish();

    if (result.error != noError)
        return Reply::failure (result.error);

    auto reply = Reply::success (std::span (output).first (result.outputSize));
    reply.handsOutSection = result.mapsStatistics;
    return reply;
}

} // namespace Simulation
