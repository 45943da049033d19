#pragma once

#include "drivers/machine/Host.h"
#include "drivers/pipewire/AudioInterface.h"
#include "drivers/pipewire/Graph.h"
#include "drivers/pipewire/Options.h"
#include "drivers/pipewire/XrunJournal.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace PipeWire
{

/** A machine folder with PipeWire's audio devices in it. Used by one thread at a time. */
class Driver final : private GraphListener
{
public:
    /** @param newVoice  says what somebody should know; not owned */
    explicit Driver (const Machine::CommandLine& newVoice) : voice (newVoice), host (folderSuffix) {}

    /** Takes every interface away, then the folder. */
    ~Driver() override;

    Driver (const Driver&) = delete;
    Driver& operator= (const Driver&) = delete;

    /** Makes the folder; PipeWire is looked for later.

        @param newSysfs  where the kernel's device tree is mounted
        @returns         an empty string, or one line that says why it could not be done
    */
    std::string start (const Options& newOptions, const std::string& newSysfs);

    /** Connects to PipeWire if it is not connected, and listens to it when that is due. Does not wait.

        @returns milliseconds until it wants to be called although nothing has come in; -1: never
    */
    int serve();

    /** Processes what PipeWire has sent, and prints the xruns on standard output. */
    void listen();

    /** Counts and logs complaints of the kernel's where they belong.

        @param names  see KernelLog
    */
    void kernelComplained (const std::vector<std::string>& names);

    Machine::Host& getHost() { return host; }

    /** Readable when listen() has something to do; -1 while much comes: serve() then listens. */
    int getDescriptor() const { return restsUntil > 0 ? -1 : graph->getDescriptor(); }

private:
    // This driver's own interface class, by which it knows its folders.
    static constexpr const char* folderSuffix = "#{a3c05d1e-6b47-4f0c-8d29-15e7f4b2c986}";

    using Interfaces = std::map<std::uint32_t, std::unique_ptr<AudioInterface>>;

    void clientAdded (std::uint32_t id, const Properties& properties) override;
    void deviceAdded (std::uint32_t id, const Properties& properties) override;
    void nodeAdded (std::uint32_t id, const Properties& properties) override;
    void linkAdded (std::uint32_t id, std::uint32_t outputNode, std::uint32_t inputNode) override;
    void profilerAdded (std::uint32_t id) override;
    void settled() override;
    void nodeStopped (std::uint32_t id) override;
    void removed (std::uint32_t id) override;
    void profiled (std::span<const std::uint8_t> message) override;

    bool isWanted (const Properties& properties, bool isHardwareOrNull);
    std::uint32_t getNumber (const std::string& owner);
    bool plugIn (Interfaces& interfaces, AudioInterface::Description description, const std::string& name);
    void plugInDevice (std::uint32_t number, const Properties& properties);
    void plugInClients (const Account& account);
    void unplug (std::uint32_t number);
    void unplugAll();
    void release (const std::string& owner);
    void measure (const Account& account);
    void writeXruns (bool waits);

    const Machine::CommandLine& voice;
    Options options;
    std::string sysfs;
    Machine::Host host; // goes after the interfaces in it

    // Interfaces are known by numbers that are never used again; a node's or a device's comes before its interface.
    std::uint32_t lastNumber = 0;
    std::map<std::string, std::uint32_t> numbers; // by owner: a device, a group of nodes, or a node
    std::map<std::uint32_t, std::string> owners;  // by node
    Interfaces devices, clients;                  // by number

    std::map<std::uint32_t, std::uint32_t> processes; // by client
    std::vector<Cycle> cycles;                        // not accounted for yet
    std::set<std::string> namesFound;                 // of those in the options
    Roster roster;
    Accountant accountant;
    XrunJournal journal;
    const std::unique_ptr<Graph> graph = Graph::make (*this);
    std::optional<std::uint32_t> profiler;
    std::int64_t lastReport = 0, restsUntil = 0; // nanoseconds of CLOCK_MONOTONIC; 0: it does not rest
    bool wasConnected = false, isWaiting = false, hasSettled = false;
};

} // namespace PipeWire
