#include "drivers/pipewire/Driver.h"

#include "drivers/machine/Clock.h"
#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/Sysfs.h"
#include "protocol/MachineLayout.h"

#include <algorithm>
#include <initializer_list>

namespace PipeWire
{

namespace
{
constexpr int reconnectMilliseconds = 1000;

std::int64_t readNanoseconds()
{
    return Machine::readClock() * (1'000'000'000 / MachineLayout::ticksPerSecond);
}

/* The first of these properties that there is. */
std::string getFirst (const Properties& properties, std::initializer_list<const char*> keys)
{
    for (const auto* key : keys)
        if (const auto found = properties.find (key); found != properties.end() && ! found->second.empty())
            return found->second;

    return {};
}

NodeKind identify (const Properties& properties)
{
    const auto mediaClass = getFirst (properties, { "media.class" });

    if (mediaClass == "Audio/Sink")
        return NodeKind::sink;

    if (mediaClass == "Audio/Source" || mediaClass == "Audio/Source/Virtual")
        return NodeKind::source;

    if (mediaClass == "Audio/Duplex")
        return NodeKind::duplex;

    if (mediaClass == "Stream/Output/Audio")
        return NodeKind::playbackStream;

    return mediaClass == "Stream/Input/Audio" ? NodeKind::captureStream : NodeKind::other;
}

/* A name that can be a folder's. */
std::string makeFolderName (std::string name, const std::string& suffix)
{
    constexpr std::size_t maximumLength = 160;
    name.resize (std::min (name.size(), maximumLength));

    for (auto& character : name)
        if (static_cast<unsigned char> (character) <= ' ' || character == '/' || character == 127)
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

    if (auto error = graph.getError(); ! error.empty())
        return error;

    return host.start (options.machine, findHostControllers (sysfs));
}

int Driver::serve()
{
    host.serve();

    if (wasConnected && ! graph.isConnected())
        unplugAll();

    // What is not there yet is looked for at leisure.
    wasConnected = graph.isConnected() || graph.connect();
    return wasConnected ? -1 : reconnectMilliseconds;
}

bool Driver::isWanted (const Properties& properties, bool isHardwareOrNull) const
{
    if (options.devices.empty())
        return options.servesAll ? isHardwareOrNull : getFirst (properties, { "device.bus" }) == "firewire";

    const auto isNamed = [&properties] (const std::string& name)
    {
        for (const auto* key : { "device.name", "device.description", "device.nick", "node.name", "node.description" })
            if (const auto found = properties.find (key); found != properties.end() && found->second == name)
                return true;

        return false;
    };

    return std::any_of (options.devices.begin(), options.devices.end(), isNamed);
}

void Driver::plugIn (std::uint32_t id, const Properties& properties)
{
    const auto name = getFirst (properties, { "device.name", "node.name" });
    AudioInterface::Description description;
    description.name = getFirst (properties, { "device.description", "node.description", "device.nick", "node.nick" });
    description.name = description.name.empty() ? name : description.name;

    if (getFirst (properties, { "device.bus" }) == "firewire")
    {
        const auto ids = readFireWireIds (sysfs, getFirst (properties, { "device.sysfs.path" }));
        description.vendor = ids.vendor;
        description.type = ids.model;
    }

    // Other buses have ids of their own, which PipeWire tells.
    if (description.vendor == 0)
    {
        description.vendor = parseId (getFirst (properties, { "device.vendor.id" })) & 0xffffff;
        description.type = parseId (getFirst (properties, { "device.product.id" }));
    }

    // Names need not be unique.
    for (const auto& folderName : { name, name + "#" + std::to_string (id) })
    {
        description.folderName = makeFolderName (folderName, host.getSuffix());
        auto interface = std::make_unique<AudioInterface> (description, host.getPath());

        if (host.plugIn (interface->getServer()).empty())
        {
            interfaces[id] = std::move (interface);
            return;
        }
    }
}

void Driver::unplug (std::uint32_t id)
{
    const auto found = interfaces.find (id);

    if (found == interfaces.end())
        return;

    found->second->getServer().unplug();
    host.retire (found->second->releaseServer());
    interfaces.erase (found);
}

void Driver::unplugAll()
{
    while (! interfaces.empty())
        unplug (interfaces.begin()->first);

    owners.clear();
    kinds.clear();
    filter = {};
}

//==============================================================================
void Driver::deviceAdded (std::uint32_t id, const Properties& properties)
{
    if (! isWanted (properties, true))
        return;

    plugIn (id, properties);

    if (const auto added = interfaces.find (id); added != interfaces.end())
        for (const auto& [node, owner] : owners)
            if (owner == id)
                added->second->getFigures().addNode (node);
}

void Driver::nodeAdded (std::uint32_t id, const Properties& properties)
{
    const auto kind = identify (properties);
    kinds[id] = kind;

    if (kind != NodeKind::sink && kind != NodeKind::source && kind != NodeKind::duplex)
        return;

    auto owner = parseId (getFirst (properties, { "device.id" }));

    if (owner == 0)
    {
        const auto factory = getFirst (properties, { "factory.name" });
        owner = id;

        if (isWanted (properties, factory == "support.null-audio-sink" || factory.starts_with ("api.")))
            plugIn (id, properties);
    }

    owners[id] = owner;

    if (const auto known = interfaces.find (owner); known != interfaces.end())
        known->second->getFigures().addNode (id);
}

void Driver::nodeStopped (std::uint32_t id)
{
    for (const auto& [key, interface] : interfaces)
        interface->getFigures().nodeStopped (id, readNanoseconds());
}

void Driver::removed (std::uint32_t id)
{
    unplug (id);

    for (const auto& [key, interface] : interfaces)
        interface->getFigures().nodeRemoved (id, readNanoseconds());

    owners.erase (id);
    kinds.erase (id);
    filter.forget (id);
}

void Driver::profiled (std::span<const std::uint8_t> message)
{
    for (const auto& cycle : readProfile (message))
        if (const auto newHardwareXruns = filter.take (cycle))
            for (const auto& [key, interface] : interfaces)
                interface->getFigures().add (cycle, *newHardwareXruns, kinds);

    for (const auto& [key, interface] : interfaces)
        interface->publish();
}

} // namespace PipeWire
