#include "drivers/pipewire/Driver.h"

#include "drivers/machine/Clock.h"
#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/Sysfs.h"
#include "protocol/MachineLayout.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace PipeWire
{

namespace
{
constexpr int reconnectMilliseconds = 1000;

const std::string devicePrefix = "device ";

std::int64_t readNanoseconds()
{
    return Machine::readClock() * (1'000'000'000 / MachineLayout::ticksPerSecond);
}

bool isFireWire (const Properties& properties)
{
    // Nodes of PipeWire's own FireWire driver belong to no device.
    return getFirst (properties, { "device.bus" }) == "firewire"
           || getFirst (properties, { "node.group" }).starts_with ("ffado");
}

NodeKind identify (const Properties& properties)
{
    const auto mediaClass = getFirst (properties, { "media.class" });

    if (mediaClass == "Audio/Sink")
        return NodeKind::sink;

    if (mediaClass == "Audio/Source" || mediaClass == "Audio/Source/Virtual")
        return NodeKind::source;

    return mediaClass == "Audio/Duplex" ? NodeKind::duplex : NodeKind::client;
}

bool isControl (char character)
{
    return static_cast<unsigned char> (character) < ' ' || character == 127;
}

/* A client's name on one line. */
std::string makeLine (std::string text)
{
    std::ranges::replace_if (text, isControl, ' ');
    return text;
}

/* A name that can be a folder's. */
std::string makeFolderName (std::string name, const std::string& suffix)
{
    constexpr std::size_t maximumLength = 160;
    name.resize (std::min (name.size(), maximumLength));

    for (auto& character : name)
        if (isControl (character) || character == ' ' || character == '/')
            character = '_';

    return "pipewire#" + name + suffix;
}
} // namespace

Driver::~Driver()
{
    unplugAll();
}

std::string Driver::start (const Options& newOptions, const std::string& newSysfs)
{
    options = newOptions;
    sysfs = newSysfs;

    if (auto error = graph->getError(); ! error.empty())
        return error;

    return host.start (options.machine, findHostControllers (sysfs));
}

int Driver::serve()
{
    if (restsUntil > 0 && readNanoseconds() >= restsUntil)
        listen();

    if (wasConnected && ! graph->isConnected())
        unplugAll();

    // PipeWire is looked for only now and then.
    wasConnected = graph->isConnected() || graph->connect();

    if (std::exchange (isWaiting, ! wasConnected) != isWaiting)
        voice.say (isWaiting ? "waiting for PipeWire" : "PipeWire is there");

    if (! wasConnected)
        return reconnectMilliseconds;

    constexpr std::int64_t millisecond = 1'000'000;
    return restsUntil == 0 ? -1 : static_cast<int> ((restsUntil - readNanoseconds()) / millisecond) + 1;
}

void Driver::listen()
{
    graph->dispatch();
    restsUntil = 0;

    if (cycles.empty())
        return;

    // PipeWire can report each cycle as it comes, but the program looks only four times a second. Rare messages are
    // read at once.
    constexpr std::int64_t rest = 250'000'000;
    const auto now = readNanoseconds();
    restsUntil = now < lastReport + rest * 3 / 2 ? now + rest : 0;
    lastReport = now;

    // Each driver's cycles come in order, those of several drivers one after the other.
    if (const auto getTime = [] (const Cycle& cycle) { return cycle.driver.signal; };
        ! std::ranges::is_sorted (cycles, {}, getTime))
        std::ranges::stable_sort (cycles, {}, getTime);

    for (const auto& cycle : cycles)
        if (const auto account = accountant.take (cycle, roster))
            measure (*account);

    cycles.clear();

    for (const auto* interfaces : { &devices, &clients })
        for (const auto& [number, interface] : *interfaces)
            interface->publish();

    writeXruns (true);
}

void Driver::measure (const Account& account)
{
    auto isServed = false;
    journal.follow (account);

    for (const auto& [number, device] : devices)
    {
        if (const auto xruns = device->getFigures().add (account, roster))
        {
            isServed = true;

            for (const auto& xrun : *xruns)
                journal.add (device->getName(), xrun);
        }
    }

    if (! isServed || ! options.servesClients)
        return;

    plugInClients (account);

    for (const auto& [number, client] : clients)
        client->getFigures().add (account, roster);
}

/* On standard output, so that the journal of the system has them. */
void Driver::writeXruns (bool waits)
{
    const auto wallTime = std::chrono::system_clock::now().time_since_epoch();
    const auto lines = journal.take (readNanoseconds(),
                                     std::chrono::duration_cast<std::chrono::nanoseconds> (wallTime).count(),
                                     waits);

    for (const auto& line : lines)
        std::printf ("%s\n", line.c_str());

    if (! lines.empty())
        std::fflush (stdout);
}

//==============================================================================
bool Driver::isWanted (const Properties& properties, bool isHardwareOrNull)
{
    if (options.devices.empty())
        return options.servesAll ? isHardwareOrNull : isFireWire (properties);

    auto isNamed = false;

    for (const auto* key :
         { "device.name", "device.description", "device.nick", "node.name", "node.description", "node.group" })
    {
        const auto value = getFirst (properties, { key });

        if (std::ranges::find (options.devices, value) == options.devices.end())
            continue;

        isNamed = true;
        namesFound.insert (value);
    }

    return isNamed;
}

std::uint32_t Driver::getNumber (const std::string& owner)
{
    const auto [position, isNew] = numbers.try_emplace (owner, lastNumber + 1);
    lastNumber += isNew ? 1 : 0;
    return position->second;
}

bool Driver::plugIn (Interfaces& interfaces, AudioInterface::Description description, const std::string& name)
{
    // Names need not be unique.
    for (const auto& folderName : { name, name + "#" + std::to_string (description.number) })
    {
        description.folderName = makeFolderName (folderName, host.getSuffix());
        auto interface = std::make_unique<AudioInterface> (description, host.getPath());

        if (host.plugIn (interface->getServer()).empty())
        {
            interfaces[description.number] = std::move (interface);
            return true;
        }
    }

    return false;
}

void Driver::plugInDevice (std::uint32_t number, const Properties& properties)
{
    const auto name = getFirst (properties, { "device.name", "node.group", "node.name" });
    AudioInterface::Description description { number, {}, {}, 0, 0, {} };
    description.name = makeLine (getFirst (
        properties,
        { "device.description", "device.nick", "node.description", "node.nick", "device.name", "node.name" }));

    if (isFireWire (properties))
    {
        const auto ids = readFireWireIds (sysfs, getFirst (properties, { "device.sysfs.path" }));
        description.vendor = ids.vendor;
        description.type = ids.model;
        description.path = getFirst (properties, { "device.sysfs.path" });
    }

    // Other buses have ids of their own, which PipeWire knows.
    if (description.vendor == 0)
    {
        description.vendor = parseId (getFirst (properties, { "device.vendor.id" })) & 0xffffff;
        description.type = parseId (getFirst (properties, { "device.product.id" }));
    }

    if (plugIn (devices, description, name))
        voice.say ("serves " + description.name);
}

/* The clients that work for a served device. */
void Driver::plugInClients (const Account& account)
{
    for (const auto& part : account.followers)
    {
        const auto& node = *part.node;

        if (node.kind != NodeKind::client || node.interface == 0 || part.begin == 0
            || clients.contains (node.interface))
            continue;

        const auto name = node.process == 0 ? node.name : node.name + " (" + std::to_string (node.process) + ")";
        plugIn (clients, { node.interface, {}, name, 0, 0, {} }, "client#" + name);
    }
}

void Driver::unplug (std::uint32_t number)
{
    for (auto* interfaces : { &devices, &clients })
    {
        const auto found = interfaces->find (number);

        if (found == interfaces->end())
            continue;

        if (interfaces == &devices)
            voice.say (found->second->getName() + " has gone");

        found->second->getServer().unplug();
        host.retire (found->second->releaseServer());
        interfaces->erase (found);
    }
}

void Driver::unplugAll()
{
    writeXruns (false);

    for (const auto& [owner, number] : numbers)
        unplug (number);

    numbers.clear();
    owners.clear();
    processes.clear();
    cycles.clear();
    namesFound.clear();
    roster = {};
    accountant = {};
    profiler.reset();
    hasSettled = false;
}

void Driver::kernelComplained (const std::vector<std::string>& names)
{
    for (const auto& name : names)
        for (const auto& [number, device] : devices)
            if (isBelow (device->getPath(), name))
                device->getFigures().kernelComplained (readNanoseconds());
}

//==============================================================================
void Driver::clientAdded (std::uint32_t id, const Properties& properties)
{
    processes[id] = parseId (getFirst (properties, { "pipewire.sec.pid" }));
}

void Driver::deviceAdded (std::uint32_t id, const Properties& properties)
{
    if (isWanted (properties, true))
        plugInDevice (getNumber (devicePrefix + std::to_string (id)), properties);
}

void Driver::nodeAdded (std::uint32_t id, const Properties& properties)
{
    Node node;
    node.kind = identify (properties);
    node.name = makeLine (getFirst (properties, { "node.description", "node.name", "application.name", "media.name" }));

    // A client that another process connects for names its own process.
    node.process = parseId (getFirst (properties, { "application.process.id" }));

    if (const auto client = processes.find (parseId (getFirst (properties, { "client.id" })));
        node.process == 0 && client != processes.end())
        node.process = client->second;

    const auto device = getFirst (properties, { "device.id" });
    const auto group = getFirst (properties, { "node.group" });
    const auto isDevice = node.kind != NodeKind::client;
    auto owner = "node " + std::to_string (id);

    if (isDevice && ! device.empty())
        owner = devicePrefix + device;
    else if (isDevice && ! group.empty())
        owner = "group " + group;

    owners[id] = owner;
    node.interface = getNumber (owner);

    if (isDevice && device.empty())
    {
        const auto factory = getFirst (properties, { "factory.name" });
        const auto isHardwareOrNull =
            factory == "support.null-audio-sink" || factory.starts_with ("api.") || isFireWire (properties);

        if (isWanted (properties, isHardwareOrNull) && ! devices.contains (node.interface))
            plugInDevice (node.interface, properties);
    }

    roster.addNode (id, std::move (node));
}

void Driver::linkAdded (std::uint32_t id, std::uint32_t outputNode, std::uint32_t inputNode)
{
    roster.addLink (id, outputNode, inputNode);
}

void Driver::profilerAdded (std::uint32_t id)
{
    profiler = id;

    if (hasSettled)
        voice.say ("PipeWire's profiler is there");
}

void Driver::settled()
{
    hasSettled = true;

    if (! profiler)
        voice.say ("PipeWire's profiler module is not loaded: there are no figures until it is");

    for (const auto& name : options.devices)
        if (! namesFound.contains (name))
            voice.say ("no device is called \"" + name + "\"");

    if (devices.empty() && options.devices.empty())
        voice.say (options.servesAll ? "no device" : "no FireWire device; --all serves those on other buses");
}

void Driver::nodeStopped (std::uint32_t id)
{
    for (const auto* interfaces : { &devices, &clients })
        for (const auto& [number, interface] : *interfaces)
            interface->getFigures().nodeStopped (id, readNanoseconds());
}

void Driver::removed (std::uint32_t id)
{
    if (profiler == id)
    {
        profiler.reset();
        voice.say ("PipeWire's profiler has gone: there are no figures until it is back");
    }

    nodeStopped (id);
    roster.remove (id, readNanoseconds());
    accountant.forget (id);
    processes.erase (id);
    release (devicePrefix + std::to_string (id));

    // A device is present as long as its object is, anything else as long as one of its nodes is.
    if (auto owner = owners.extract (id);
        ! owner.empty() && ! owner.mapped().starts_with (devicePrefix)
        && std::ranges::none_of (owners, [&] (const auto& other) { return other.second == owner.mapped(); }))
        release (owner.mapped());
}

void Driver::release (const std::string& owner)
{
    if (const auto number = numbers.extract (owner))
        unplug (number.mapped());
}

void Driver::profiled (std::span<const std::uint8_t> message)
{
    readProfile (message, cycles);
}

} // namespace PipeWire
