#include "drivers/simulator/Simulator.h"

#include "protocol/MachineLayout.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Simulation
{

namespace
{
// Much shorter than the program's interval, so that each look finds fresh figures.
constexpr int advanceMilliseconds = 20;
constexpr int idleMilliseconds = 1000;
constexpr std::uint32_t usualInterfaces = 2;
constexpr std::int64_t ticksPerMillisecond = MachineLayout::ticksPerSecond / 1000;

// The simulator's own interface class, by which it knows its folders.
constexpr const char* classSuffix = "#{4d1c6f0a-93b7-4e52-a8d1-7c2e5b90f314}";

std::string makeFolderName (const DeviceConfig& config, std::uint32_t number)
{
    char name[128];
    std::snprintf (name, sizeof (name), "1394#vid_%06x&type_%06x#%04u", config.vendorId, config.typeId, number);
    return std::string (name) + classSuffix;
}
} // namespace

Simulator::Simulator (Clock newClock) : clock (std::move (newClock)), host (classSuffix) {}

Simulator::~Simulator()
{
    while (! devices.empty())
        unplug (*devices.back());
}

std::string Simulator::start (const Options& newOptions)
{
    options = newOptions;

    const auto numNames = options.names.size();
    const std::size_t numInterfaces = options.numInterfaces.value_or (numNames > 0 ? numNames : usualInterfaces);

    if (numNames > numInterfaces)
        return "more names than interfaces";

    options.names.resize (numInterfaces);

    if (options.isClockOrdered)
        clock = [this] { return orderedTime; };

    if (auto error = host.start (options.machine, options.controllers); ! error.empty())
        return error;

    for (auto& name : options.names)
        if (auto error = plug (name); ! error.empty())
            return error;

    return {};
}

int Simulator::getTimeout() const
{
    const auto isConnected = [] (const auto& device) { return device->getServer().getNumConnections() > 0; };

    if (std::any_of (devices.begin(), devices.end(), isConnected))
        return advanceMilliseconds;

    return devices.empty() ? -1 : idleMilliseconds;
}

void Simulator::serve()
{
    host.serve();

    const auto now = clock();

    if (now - lastAdvance < advanceMilliseconds * ticksPerMillisecond / 2)
        return;

    lastAdvance = now;

    for (const auto& device : devices)
        device->advance();
}

bool Simulator::tick (std::uint32_t milliseconds)
{
    if (! options.isClockOrdered)
        return false;

    orderedTime += milliseconds * ticksPerMillisecond;

    for (const auto& device : devices)
        device->advance();

    return true;
}

//==============================================================================
std::string Simulator::plug (std::string& name)
{
    if (devices.size() >= maximumInterfaces)
        return "no more than " + std::to_string (maximumInterfaces) + " interfaces";

    auto chosen = name;

    for (std::uint32_t i = 1; chosen.empty(); ++i)
        if (const auto own = "Tamrix-" + std::to_string (i); findDevice (own) == nullptr)
            chosen = own;

    if (auto error = checkName (chosen); ! error.empty())
        return error;

    if (findDevice (chosen) != nullptr)
        return chosen + " is plugged in already";

    const auto known = numbers.find (chosen);
    const auto number = known != numbers.end() ? known->second : static_cast<std::uint32_t> (numbers.size() + 1);

    DeviceConfig config;
    std::memcpy (config.name, chosen.c_str(), chosen.size() + 1);
    config.sampleRate = options.sampleRate;
    config.bufferSize = options.bufferSize;
    config.seed = options.seed + number;
    config.hasDsp = number % 2 == 1;
    config.hasFpga = number % 3 != 0;

    auto device = std::make_unique<SimulatedDevice> (config, host.getPath(), makeFolderName (config, number), clock);

    if (auto error = host.plugIn (device->getServer()); ! error.empty())
        return error;

    numbers.emplace (chosen, number);
    devices.push_back (std::move (device));
    name = chosen;
    return {};
}

void Simulator::unplug (SimulatedDevice& device, bool isCrash)
{
    device.setOpening (true); // its folder is to go
    isCrash ? device.getServer().kill() : device.getServer().unplug();

    // Its clients have yet to be told that it has gone.
    host.retire (device.releaseServer());
    std::erase_if (devices, [&device] (const auto& other) { return other.get() == &device; });
}

SimulatedDevice* Simulator::findDevice (std::string_view name) const
{
    const auto found = std::ranges::find (devices, name, &SimulatedDevice::getName);
    return found == devices.end() ? nullptr : found->get();
}

} // namespace Simulation
