#include "drivers/simulator/Simulator.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace Simulation
{

namespace
{
// Short of the program's four looks a second by far, so that each finds fresh figures.
constexpr int advanceMilliseconds = 20;
constexpr int idleMilliseconds = 1000;
constexpr std::int64_t ticksPerMillisecond = 10'000;

// The simulator's own interface class, by which it knows its folders.
constexpr std::string_view classSuffix = "#{4d1c6f0a-93b7-4e52-a8d1-7c2e5b90f314}";

std::string makeFolderName (const DeviceConfig& config, std::uint32_t number)
{
    char name[128];
    std::snprintf (name, sizeof (name), "1394#vid_%06x&type_%06x#%04u", config.vendorId, config.typeId, number);
    return name + std::string (classSuffix);
}
} // namespace

Simulator::Simulator (Clock newClock) : clock (newClock), poller (::epoll_create1 (EPOLL_CLOEXEC)) {}

Simulator::~Simulator()
{
    for (const auto& device : devices)
        device->getServer().unplug();
}

std::string Simulator::start (const Options& newOptions)
{
    options = newOptions;

    if (! poller.isOpen())
        return "no descriptor left";

    if (auto error = folder.create (options.machine.empty() ? MachineFolder::getDefaultPath() : options.machine,
                                    options.controllers);
        ! error.empty())
        return error;

    removeLeftovers();

    for (auto& name : options.names)
        if (auto error = plug (name); ! error.empty())
            return error;

    return {};
}

/* A simulator that was killed leaves interfaces that nobody answers for. */
void Simulator::removeLeftovers() const
{
    std::error_code error;
    std::vector<std::string> names;

    for (auto entry = std::filesystem::directory_iterator (getPath() + "/interfaces", error);
         ! error && entry != std::filesystem::directory_iterator();
         entry.increment (error))
    {
        if (auto name = entry->path().filename().string(); name.ends_with (classSuffix))
            names.push_back (std::move (name));
    }

    for (const auto& name : names)
        InterfaceServer::removeAbandoned (getPath(), name);
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
    std::array<epoll_event, maximumInterfaces> ready {};
    const auto numReady = ::epoll_wait (poller.get(), ready.data(), static_cast<int> (ready.size()), 0);

    for (int i = 0; i < numReady; ++i)
        static_cast<SimulatedDevice*> (ready[static_cast<std::size_t> (i)].data.ptr)->getServer().serve (0);

    std::erase_if (departed, [] (const auto& device) { return device->getServer().getNumConnections() == 0; });

    const auto now = clock();

    if (now - lastAdvance < advanceMilliseconds * ticksPerMillisecond / 2)
        return;

    lastAdvance = now;

    for (const auto& device : devices)
        device->advance();
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

    auto device = std::make_unique<SimulatedDevice> (config, getPath(), makeFolderName (config, number), clock);

    if (auto error = device->getServer().plugIn(); ! error.empty())
        return error;

    epoll_event event {};
    event.events = EPOLLIN;
    event.data.ptr = device.get();
    ::epoll_ctl (poller.get(), EPOLL_CTL_ADD, device->getServer().getDescriptor(), &event);

    numbers.emplace (chosen, number);
    devices.push_back (std::move (device));
    name = chosen;
    return {};
}

void Simulator::unplug (SimulatedDevice& device)
{
    device.getServer().unplug();
    retire (device);
}

void Simulator::kill (SimulatedDevice& device)
{
    device.getServer().kill();
    retire (device);
}

void Simulator::retire (SimulatedDevice& device)
{
    const auto isIt = [&device] (const auto& other) { return other.get() == &device; };
    const auto position = std::find_if (devices.begin(), devices.end(), isIt);

    // Its clients have yet to be told that it has gone; serve() ends it when the last one has left.
    departed.push_back (std::move (*position));
    devices.erase (position);
}

SimulatedDevice* Simulator::findDevice (std::string_view name) const
{
    const auto isNamed = [name] (const auto& device) { return device->getName() == name; };
    const auto found = std::find_if (devices.begin(), devices.end(), isNamed);
    return found == devices.end() ? nullptr : found->get();
}

} // namespace Simulation
