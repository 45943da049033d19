#pragma once

#include <cstdint>
#include <vector>

namespace PipeWire
{

/** What the profiler tells of one node in one cycle. Times are nanoseconds of CLOCK_MONOTONIC; 0: never. */
struct NodeCycle
{
    std::uint32_t id = 0;            /**< Of the node's global. */
    std::int64_t previousSignal = 0; /**< Of the cycle before; drivers only. */
    std::int64_t signal = 0;
    std::int64_t awake = 0;
    std::int64_t finish = 0;
    bool isFinished = false; /**< False: the next cycle began before it had finished this one. */
};

/** One cycle of a driver and of all that follow it. */
struct Cycle
{
    NodeCycle driver;
    std::vector<NodeCycle> followers;

    std::uint32_t hardwareXruns = 0; /**< That the driver's hardware has told of so far. */
    std::uint32_t rate = 0;          /**< Hz; 0: not told, or not a whole number. */
    std::uint64_t position = 0;      /**< Sample frames; of the next cycle when this one was not finished. */
    std::uint32_t duration = 0;      /**< Sample frames. */
    std::uint64_t delay = 0;         /**< Sample frames between position and hardware, in either direction. */
    double rateDifference = 1;       /**< The factor by which the clock is corrected. */
};

} // namespace PipeWire
