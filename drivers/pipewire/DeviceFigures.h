#pragma once

#include "drivers/machine/EventRing.h"
#include "drivers/pipewire/Cycle.h"
#include "protocol/StatisticsBlock.h"

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>

namespace PipeWire
{

/** What a node does, as far as it matters here. */
enum class NodeKind : std::uint8_t
{
    sink,
    source,
    duplex,
    playbackStream,
    captureStream,
    other
};

/** The nodes that are there, by the ids of their globals. */
using NodeKinds = std::map<std::uint32_t, NodeKind>;

/** Tells cycles from further reports of the same ones. Used by one thread at a time. */
class CycleFilter
{
public:
    /** @returns nothing when this cycle has been reported before, else how many more xruns its driver's hardware has
                 told of since the driver's cycle before */
    std::optional<std::uint32_t> take (const Cycle& cycle);

    /** A node has gone; another one may get its id. */
    void forget (std::uint32_t id) { drivers.erase (id); }

private:
    struct Driver
    {
        std::int64_t signal;
        std::uint32_t hardwareXruns;
    };

    std::map<std::uint32_t, Driver> drivers;
};

/** The figures and the event log of one audio device, made from the cycles of the graph.

    Pure arithmetic; times go in as nanoseconds of CLOCK_MONOTONIC and come out as ticks of the machine folder's
   counter. Where a device has several sinks or sources, the figures are those of the one that runs; of several that
   run, of the one that began first. Used by one thread at a time.
*/
class DeviceFigures
{
public:
    /** Firmware counters, as far as they are shown. */
    struct Counters
    {
        std::uint32_t overflows = 0, underruns = 0, syncCount = 0;
        std::uint32_t fifoLevel = 0; /**< 1024 is full. */
    };

    /** A sink or source of this device. */
    void addNode (std::uint32_t id) { nodes.insert (id); }

    /** A sink or source does not run any more; cycles that began before may still be told of. */
    void nodeStopped (std::uint32_t id, std::int64_t now);
    void nodeRemoved (std::uint32_t id, std::int64_t now);

    /** Measures a cycle, if this device takes part in it.

        @param newHardwareXruns  as CycleFilter tells
    */
    void add (const Cycle& cycle, std::uint32_t newHardwareXruns, const NodeKinds& kinds);

    void resetStatistics();
    void clearCounters();

    StatisticsBlock getStatistics() const;
    const Counters& getCounters() const { return counters; }
    std::uint32_t getSampleRate() const { return sampleRate; } /**< Hz; 0 before the first cycle. */
    std::uint32_t getBufferSize() const { return bufferSize; } /**< Sample frames; 0 before the first cycle. */
    Machine::EventRing& getEvents() { return events; }

private:
    /** A time that is measured again and again, nanoseconds. */
    struct Measurement
    {
        std::int64_t sum = 0, count = 0;
        std::int64_t maximum = std::numeric_limits<std::int64_t>::min();
        std::int64_t minimum = std::numeric_limits<std::int64_t>::max();

        void add (std::int64_t nanoseconds);
        std::int64_t averageTicks() const;
        std::int64_t maximumTicks() const;
    };

    /** The cycles of the device's sink, or of its source. */
    struct Side
    {
        std::uint32_t node = 0; // none before the first cycle
        std::uint32_t driver = 0;
        std::int64_t signal = 0, driverSignal = 0; // of the last cycle
        std::int64_t stopTime = 0;                 // 0: it runs
        std::int64_t lastPeriod = 0;
        std::uint64_t expectedPosition = 0;
        bool isPositionExpected = false;
        std::uint32_t numCycles = 0; // since it began to run
        std::uint32_t bufferCount = 0;
        Measurement period;
    };

    static constexpr std::size_t playback = 0;
    static constexpr std::size_t record = 1;

    const NodeCycle* findNode (const Cycle& cycle, std::size_t side, const NodeKinds& kinds) const;
    void measureSide (std::size_t side, const NodeCycle& node, const Cycle& cycle, bool isLate);
    void measureOffset();
    void measureClients (const Cycle& cycle);
    void measureClock (const Cycle& cycle);
    void countXruns (const Cycle& cycle,
                     std::uint32_t newHardwareXruns,
                     std::array<bool, 2> runs,
                     const NodeKinds& kinds);
    void log (std::int64_t nanoseconds,
              DriverProtocol::EventType type,
              std::uint32_t parameter,
              std::int8_t auxValue = 0);

    std::set<std::uint32_t> nodes;
    std::array<Side, 2> sides;
    Measurement wakeup, host, offset;
    Counters counters;
    std::uint32_t sampleRate = 0, bufferSize = 0;
    double loggedCorrection = 1;
    Machine::EventRing events;
};

} // namespace PipeWire
