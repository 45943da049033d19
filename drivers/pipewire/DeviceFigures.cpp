#include "drivers/pipewire/DeviceFigures.h"
#include "protocol/DriverProtocol.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace PipeWire
{

using DriverProtocol::EventType;

namespace
{
constexpr std::int64_t nanosecondsPerTick = 100;

// Loops that follow a clock change its correction a little in every cycle.
constexpr double loggedCorrectionStep = 10e-6;

bool isOn (NodeKind kind, bool isRecord)
{
    return kind == NodeKind::duplex || kind == (isRecord ? NodeKind::source : NodeKind::sink);
}

NodeKind kindOf (std::uint32_t id, const NodeKinds& kinds)
{
    const auto found = kinds.find (id);
    return found == kinds.end() ? NodeKind::other : found->second;
}

/** What a follower did for a cycle; times in nanoseconds, 0 for what it has not done. */
struct Part
{
    std::int64_t begin = 0; // the driver's signal
    std::int64_t awake = 0, finish = 0;
    std::int64_t missedBy = 0; // when the next cycle began without it
    bool isAsynchronous = false;
};

/* Nothing for a follower that takes no part. One that works asynchronously, as clients of newer PipeWires do, has until
   the next signal for what it was signalled to do: that is told of with the next cycle. */
std::optional<Part> describePart (const NodeCycle& follower, const Cycle& cycle)
{
    const auto& driver = cycle.driver;
    Part part;
    part.isAsynchronous = follower.signal < driver.signal && follower.signal == driver.previousSignal;

    if (follower.signal == 0 || (follower.signal < driver.signal && ! part.isAsynchronous))
        return std::nullopt;

    part.begin = part.isAsynchronous ? driver.previousSignal : driver.signal;

    // What is before its signal it did in an earlier cycle.
    if (follower.awake >= follower.signal)
        part.awake = follower.awake;

    if (part.awake > 0 && follower.finish >= follower.awake && (follower.isFinished || part.isAsynchronous))
        part.finish = follower.finish;

    if (part.isAsynchronous ? part.finish == 0 : ! follower.isFinished)
        part.missedBy = part.isAsynchronous ? driver.signal : std::max (driver.finish, driver.signal);

    return part;
}
} // namespace

//==============================================================================
std::optional<std::uint32_t> CycleFilter::take (const Cycle& cycle)
{
    const auto [position, isNew] = drivers.try_emplace (cycle.driver.id, Driver { 0, cycle.hardwareXruns });
    auto& driver = position->second;

    // One that is late is reported when it should have finished, and again when it has.
    if (cycle.driver.signal <= driver.signal)
        return std::nullopt;

    driver.signal = cycle.driver.signal;
    const auto before = std::exchange (driver.hardwareXruns, cycle.hardwareXruns);
    return cycle.hardwareXruns > before ? cycle.hardwareXruns - before : 0;
}

//==============================================================================
void DeviceFigures::Measurement::add (std::int64_t nanoseconds)
{
    // Times from outside: a sum that does not hold them any more starts afresh.
    if (__builtin_add_overflow (sum, nanoseconds, &sum))
    {
        sum = nanoseconds;
        count = 0;
    }

    ++count;
    maximum = std::max (maximum, nanoseconds);
    minimum = std::min (minimum, nanoseconds);
}

std::int64_t DeviceFigures::Measurement::averageTicks() const
{
    return count == 0 ? 0 : sum / count / nanosecondsPerTick;
}

std::int64_t DeviceFigures::Measurement::maximumTicks() const
{
    return count == 0 ? 0 : maximum / nanosecondsPerTick;
}

//==============================================================================
void DeviceFigures::log (std::int64_t nanoseconds, EventType type, std::uint32_t parameter, std::int8_t auxValue)
{
    events.append ({ nanoseconds / nanosecondsPerTick, parameter, type, auxValue });
}

void DeviceFigures::nodeStopped (std::uint32_t id, std::int64_t now)
{
    for (std::size_t side : { playback, record })
    {
        if (sides[side].node != id || sides[side].stopTime != 0)
            continue;

        sides[side].stopTime = now;
        log (now, side == record ? EventType::listenDetach : EventType::talkDetach, DriverProtocol::noParameter);
    }
}

void DeviceFigures::nodeRemoved (std::uint32_t id, std::int64_t now)
{
    if (nodes.erase (id) > 0)
        nodeStopped (id, now);
}

//==============================================================================
void DeviceFigures::add (const Cycle& cycle, std::uint32_t newHardwareXruns, const NodeKinds& kinds)
{
    std::array<bool, 2> runs {};

    // Its clock is then the next cycle's already.
    const auto isUnfinished = std::any_of (cycle.followers.begin(),
                                           cycle.followers.end(),
                                           [&] (const NodeCycle& follower)
                                           {
                                               const auto part = describePart (follower, cycle);
                                               return part && part->missedBy > 0 && ! part->isAsynchronous;
                                           });

    for (std::size_t side : { record, playback })
    {
        if (const auto* node = findNode (cycle, side, kinds); node != nullptr)
        {
            measureSide (side, *node, cycle, isUnfinished);
            runs[side] = true;
        }
    }

    if (! runs[playback] && ! runs[record])
        return;

    if (runs[playback])
        measureOffset();

    measureClients (cycle);
    measureClock (cycle);
    countXruns (cycle, newHardwareXruns, runs, kinds);
}

/* The node of a side whose cycle this is: the one that is measured, or one that takes its place. */
const NodeCycle* DeviceFigures::findNode (const Cycle& cycle, std::size_t side, const NodeKinds& kinds) const
{
    const auto& measured = sides[side];
    const auto canReplace = measured.node == 0 || (measured.stopTime != 0 && cycle.driver.signal > measured.stopTime);
    const NodeCycle* found = nullptr;

    const auto consider = [&] (const NodeCycle& node)
    {
        const auto isOurs =
            node.id == measured.node
            || (canReplace && nodes.contains (node.id) && isOn (kindOf (node.id, kinds), side == record));

        if (isOurs && node.signal >= cycle.driver.signal && (found == nullptr || node.id == measured.node))
            found = &node;
    };

    consider (cycle.driver);

    for (const auto& follower : cycle.followers)
        consider (follower);

    return found;
}

void DeviceFigures::measureSide (std::size_t index, const NodeCycle& node, const Cycle& cycle, bool isLateCycle)
{
    auto& side = sides[index];
    const auto isRecord = index == record;
    const auto isStart = side.node != node.id || (side.stopTime != 0 && cycle.driver.signal > side.stopTime);
    const auto isSameDriver = side.driver == cycle.driver.id;

    // Reports can be lost: then this is not the next cycle after the last one that we know of.
    const auto isNext = ! isStart && isSameDriver && cycle.driver.previousSignal == side.driverSignal;

    if (isStart || ! isSameDriver)
    {
        ++counters.syncCount;
        side.numCycles = 0;
        side.stopTime = 0;
        log (node.signal, isRecord ? EventType::listenAttachCompletion : EventType::talkAttachCompletion, node.id);
    }
    else if (isNext && side.isPositionExpected && ! isLateCycle && cycle.position != side.expectedPosition)
    {
        ++counters.syncCount;
    }

    // A driver tells when its cycle before began, even if we do not know of it.
    const auto isDriver = node.id == cycle.driver.id;
    const auto previous = isDriver ? cycle.driver.previousSignal : isNext ? side.signal : 0;

    if (! isStart && isSameDriver && previous > 0 && node.signal > previous)
    {
        side.lastPeriod = node.signal - previous;
        side.period.add (side.lastPeriod);
    }

    ++side.numCycles;
    ++side.bufferCount;
    side.node = node.id;
    side.driver = cycle.driver.id;
    side.signal = node.signal;
    side.driverSignal = cycle.driver.signal;
    side.expectedPosition = cycle.position + cycle.duration;
    side.isPositionExpected = ! isLateCycle;
    log (node.signal, isRecord ? EventType::listenComplete : EventType::talkComplete, side.numCycles);
}

/* From the source's cycle to the sink's that is nearest to it; both are told of one after the other. */
void DeviceFigures::measureOffset()
{
    const auto& source = sides[record];

    if (source.node == 0 || source.stopTime != 0 || source.lastPeriod == 0)
        return;

    auto distance = sides[playback].signal - source.signal;

    if (distance > source.lastPeriod / 2)
        distance -= source.lastPeriod;

    if (std::abs (distance) <= source.lastPeriod / 2)
        offset.add (distance);
}

void DeviceFigures::measureClients (const Cycle& cycle)
{
    std::int64_t lastAwake = -1;
    auto lastFinish = cycle.driver.finish - cycle.driver.signal;

    for (const auto& follower : cycle.followers)
    {
        const auto part = describePart (follower, cycle);

        if (! part)
            continue;

        const auto isClient = ! nodes.contains (follower.id);
        const auto end = part->missedBy > 0 ? part->missedBy : part->finish;

        if (part->awake > 0)
            lastAwake = std::max (lastAwake, part->awake - part->begin);

        if (end > 0)
            lastFinish = std::max (lastFinish, end - part->begin);

        if (isClient && part->awake > 0)
            log (part->awake, EventType::userClientEvent, follower.id);

        if (isClient && part->finish > 0)
            log (part->finish, EventType::outputReady, follower.id);
    }

    if (lastAwake >= 0)
        wakeup.add (lastAwake);

    if (lastFinish >= 0)
        host.add (lastFinish);
}

void DeviceFigures::measureClock (const Cycle& cycle)
{
    if (cycle.rate > 0)
        sampleRate = cycle.rate;

    if (cycle.duration > 0)
        bufferSize = cycle.duration;

    // The clock of another device says nothing of this one's.
    if (! nodes.contains (cycle.driver.id))
        return;

    if (cycle.duration > 0)
        counters.fifoLevel =
            static_cast<std::uint32_t> (std::min (cycle.delay, 2 * std::uint64_t { cycle.duration })
                                        * DriverProtocol::fullFifo / (2 * std::uint64_t { cycle.duration }));

    if (const auto change = cycle.rateDifference - loggedCorrection; std::abs (change) >= loggedCorrectionStep)
    {
        constexpr double parts = 1'000'000;
        const auto parameter = std::clamp (cycle.rateDifference * parts, 0.0, 4 * parts);
        loggedCorrection = cycle.rateDifference;
        log (cycle.driver.signal,
             EventType::clockAdjust,
             static_cast<std::uint32_t> (std::lround (parameter)),
             static_cast<std::int8_t> (change > 0 ? 1 : -1));
    }
}

void DeviceFigures::countXruns (const Cycle& cycle,
                                std::uint32_t newHardwareXruns,
                                std::array<bool, 2> runs,
                                const NodeKinds& kinds)
{
    std::array<bool, 2> isMissed {};
    auto time = cycle.driver.signal;

    for (const auto& follower : cycle.followers)
    {
        const auto part = describePart (follower, cycle);

        if (! part || part->missedBy == 0)
            continue;

        time = std::max (time, part->missedBy);

        // A client that only plays keeps nothing from the source, one that only records nothing from the sink.
        const auto kind = kindOf (follower.id, kinds);
        isMissed[playback] = isMissed[playback] || kind != NodeKind::captureStream;
        isMissed[record] = isMissed[record] || kind != NodeKind::playbackStream;
    }

    const auto isOwnHardware = nodes.contains (cycle.driver.id);
    std::array<std::uint32_t*, 2> totals { &counters.underruns, &counters.overflows };
    std::uint32_t numXruns = 0;

    for (std::size_t side : { playback, record })
    {
        if (! runs[side])
            continue;

        // A late client makes the hardware's xrun, if there is one: they are counted as one.
        const auto own = isOwnHardware && sides[side].node == cycle.driver.id ? newHardwareXruns : 0;
        const auto xruns = std::max (own, isMissed[side] ? 1u : 0u);
        *totals[side] += xruns;
        numXruns = std::max (numXruns, xruns);
    }

    if (numXruns > 0)
        log (time,
             EventType::debugCounts,
             counters.overflows + counters.underruns,
             static_cast<std::int8_t> (std::min (numXruns, 127u)));
}

//==============================================================================
void DeviceFigures::resetStatistics()
{
    wakeup = host = offset = {};

    for (auto& side : sides)
    {
        side.period = {};
        side.bufferCount = 0;
    }
}

void DeviceFigures::clearCounters()
{
    counters.overflows = counters.underruns = counters.syncCount = 0;
}

StatisticsBlock DeviceFigures::getStatistics() const
{
    StatisticsBlock block {};
    block.playbackAverage = sides[playback].period.averageTicks();
    block.playbackMaximum = sides[playback].period.maximumTicks();
    block.recordAverage = sides[record].period.averageTicks();
    block.recordMaximum = sides[record].period.maximumTicks();
    block.wakeupAverage = wakeup.averageTicks();
    block.wakeupMaximum = wakeup.maximumTicks();
    block.hostAverage = host.averageTicks();
    block.hostMaximum = host.maximumTicks();
    block.playbackBufferCount = static_cast<std::int32_t> (sides[playback].bufferCount);
    block.recordBufferCount = static_cast<std::int32_t> (sides[record].bufferCount);
    block.offsetAverage = offset.averageTicks();
    block.offsetMaximum = offset.count == 0 ? StatisticsBlock::noMaximum : offset.maximum / nanosecondsPerTick;
    block.offsetMinimum = offset.count == 0 ? StatisticsBlock::noMinimum : offset.minimum / nanosecondsPerTick;
    return block;
}

} // namespace PipeWire
