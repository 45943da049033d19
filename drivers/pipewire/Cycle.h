#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace PipeWire
{

/** What the profiler reports on one node in one cycle. Times are nanoseconds of CLOCK_MONOTONIC; 0: never. */
struct NodeCycle
{
    std::uint32_t id = 0;            /**< Of the node's global. */
    std::int64_t previousSignal = 0; /**< Of the cycle before; drivers only. */
    std::int64_t signal = 0;         /**< When it was its turn: its clients before it had finished. */
    std::int64_t awake = 0;
    std::int64_t finish = 0;
    bool isFinished = false; /**< False: the next cycle began before it had finished this one. */

    // Only newer profilers report these.
    std::optional<std::uint32_t> xruns; /**< That the node itself has counted so far. */
    std::optional<bool> isAsynchronous; /**< Its times are those of the cycle before. */
    std::optional<std::uint64_t> delay; /**< As in Cycle, by a clock of the follower's own. */
};

/** One cycle of a driver and of all that follow it. */
struct Cycle
{
    NodeCycle driver;
    std::vector<NodeCycle> followers;

    std::uint32_t xruns = 0;    /**< Counted so far by the driver, and by its followers with older PipeWires. */
    std::int64_t clockTime = 0; /**< When the clock's cycle began; the next one's when this one was not finished. */
    std::uint32_t rate = 0;     /**< Hz; 0: not reported, or not a whole number. */
    std::uint64_t position = 0; /**< Sample frames; of the clock's cycle. */
    std::uint32_t duration = 0; /**< Sample frames. */
    std::uint64_t delay = 0;    /**< Sample frames between position and hardware, in either direction. */
    double rateDifference = 1;  /**< The factor by which the clock is corrected. */
};

} // namespace PipeWire
