#pragma once

#include "drivers/machine/Host.h"
#include "drivers/pipewire/AudioInterface.h"
#include "drivers/pipewire/Graph.h"
#include "drivers/pipewire/Options.h"

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

namespace PipeWire
{

/** A machine folder with PipeWire's audio devices in it. Used by one thread at a time. */
class Driver final : private GraphListener
{
public:
    Driver() : host (folderSuffix), graph (*this) {}

    /** Takes every interface away, then the folder. */
    ~Driver() override;

    Driver (const Driver&) = delete;
    Driver& operator= (const Driver&) = delete;

    /** Makes the folder; PipeWire is looked for later.

        @param newSysfs  where the kernel's device tree is mounted
        @returns         an empty string, or one line that says why it could not be done
    */
    std::string start (const Options& newOptions, const std::string& newSysfs);

    /** Answers requests and looks for PipeWire where it is not connected to. Does not wait.

        @returns milliseconds until it wants to be called although nothing has come in; -1: never
    */
    int serve();

    /** Takes in what PipeWire has said. */
    void listen() { graph.dispatch(); }

    const Machine::Host& getHost() const { return host; }
    const Graph& getGraph() const { return graph; }

private:
    // This driver's own interface class, by which it knows its folders.
    static constexpr const char* folderSuffix = "#{a3c05d1e-6b47-4f0c-8d29-15e7f4b2c986}";

    void deviceAdded (std::uint32_t id, const Properties& properties) override;
    void nodeAdded (std::uint32_t id, const Properties& properties) override;
    void nodeStopped (std::uint32_t id) override;
    void removed (std::uint32_t id) override;
    void profiled (std::span<const std::uint8_t> message) override;

    bool isWanted (const Properties& properties, bool isHardwareOrNull) const;
    void plugIn (std::uint32_t id, const Properties& properties);
    void unplug (std::uint32_t id);
    void unplugAll();

    Options options;
    std::string sysfs;
    Machine::Host host;                                                  // goes after the interfaces in it
    std::map<std::uint32_t, std::unique_ptr<AudioInterface>> interfaces; // by device, or by a node that has none
    std::map<std::uint32_t, std::uint32_t> owners;                       // of sinks and sources: the keys above
    NodeKinds kinds;
    CycleFilter filter;
    Graph graph;
    bool wasConnected = false;
};

} // namespace PipeWire
