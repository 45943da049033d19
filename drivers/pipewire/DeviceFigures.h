#pragma once

#include "drivers/machine/EventRing.h"
#include "drivers/machine/Measurements.h"
#include "drivers/pipewire/Account.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace PipeWire
{

/** An xrun of one side of a device. */
struct Xrun
{
    bool isOverflow = false; /**< Else an underrun. */
    std::int64_t time = 0;   /**< When it happened: nanoseconds of CLOCK_MONOTONIC. */
    std::vector<Part> late;  /**< Who was late; empty when only the hardware reported it. */
};

/** The figures and the event log of one device interface, made from the cycles of the graph.

    The interface is an audio device's, or a client's: that has a cycle of playback whenever it takes part in one of the
    graph's, and the times and misses are its own.

    Pure arithmetic; times go in as nanoseconds of CLOCK_MONOTONIC and come out as ticks of the machine folder's
    counter. Where a device has several sinks or sources, the figures are those of the one that runs; of several that
    run, of the one that began first. Used by one thread at a time.
*/
class DeviceFigures
{
public:
    /** @param newInterface  the number by which the interface's nodes are known */
    explicit DeviceFigures (std::uint32_t newInterface) : interface (newInterface) {}

    /** Firmware counters, as far as they are shown. */
    struct Counters
    {
        std::uint32_t overflows = 0, underruns = 0, syncCount = 0;
        std::uint32_t fifoLevel = 0; /**< 1024 is full. */
    };

    /** A node has stopped; cycles that began before may still be reported. */
    void nodeStopped (std::uint32_t id, std::int64_t now);

    /** Measures a cycle.

        @returns the xruns in it; nothing when none of the interface's nodes takes part in this cycle
    */
    std::optional<std::vector<Xrun>> add (const Account& account, const Roster& roster);

    /** The kernel has complained about this device or its bus. */
    void kernelComplained (std::int64_t now);

    void resetStatistics();
    void clearCounters();

    StatisticsBlock getStatistics() const;
    const Counters& getCounters() const { return counters; }
    std::uint32_t getSampleRate() const { return sampleRate; } /**< Hz; 0 before the first cycle. */
    std::uint32_t getBufferSize() const { return bufferSize; } /**< Sample frames; 0 before the first cycle. */
    const Machine::EventRing& getEvents() const { return events; }

private:
    /** The cycles of the device's sink, or of its source. */
    struct Side
    {
        std::uint32_t node = 0; // none before the first cycle
        std::uint32_t driver = 0;
        std::int64_t signal = 0;   // the driver's, of the last cycle
        std::int64_t stopTime = 0; // 0: it runs
        std::int64_t lastPeriod = 0;
        std::uint64_t expectedPosition = 0;
        bool isPositionExpected = false;
        std::uint32_t numCycles = 0; // since it began to run
        std::uint32_t bufferCount = 0;
    };

    static constexpr std::size_t playback = 0;
    static constexpr std::size_t record = 1;

    const Part* findPart (const Account& account, std::size_t side) const;
    void measureSide (std::size_t side, const Part& part, const Account& account);
    void measureOffset();
    void measureFollowers (const Account& account, bool isClient);
    void measureClock (const Account& account, const std::array<const Part*, 2>& parts);
    std::vector<Xrun>
        countXruns (const Account& account, const Roster& roster, const std::array<const Part*, 2>& parts);
    void log (std::int64_t nanoseconds,
              DriverProtocol::EventType type,
              std::uint32_t parameter,
              std::int8_t auxValue = 0);

    const std::uint32_t interface;
    std::array<Side, 2> sides;
    Machine::Measurements measured; // nanoseconds
    Counters counters;
    std::uint32_t sampleRate = 0, bufferSize = 0;
    int numUnsettled = 0; // cycles to come that end a period of the old length
    std::uint32_t numComplaints = 0;
    double loggedCorrection = 1;
    Machine::EventRing events;
};

} // namespace PipeWire
