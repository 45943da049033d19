#include "drivers/pipewire/DeviceFigures.h"

#include "protocol/DriverProtocol.h"
#include "protocol/MachineLayout.h"

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
    return kind == NodeKind::duplex || (kind == NodeKind::source) == isRecord;
}
} // namespace

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

//==============================================================================
std::optional<std::vector<Xrun>> DeviceFigures::add (const Account& account, const Roster& roster)
{
    const std::array parts { findPart (account, playback), findPart (account, record) };

    if (parts[playback] == nullptr && parts[record] == nullptr)
        return std::nullopt;

    const auto& cycle = *account.cycle;

    // The period that ends with the first cycle of another length still has the old length, and so has the next one,
    // whose end was set before.
    if (! account.isLate && bufferSize > 0
        && ((cycle.duration > 0 && cycle.duration != bufferSize) || (cycle.rate > 0 && cycle.rate != sampleRate)))
        numUnsettled = 2;

    for (std::size_t side : { record, playback })
        if (parts[side] != nullptr)
            measureSide (side, *parts[side], account);

    if (parts[playback] != nullptr)
        measureOffset();

    const auto* any = parts[playback] != nullptr ? parts[playback] : parts[record];
    measureFollowers (account, any->node->kind == NodeKind::client);

    if (! account.isLate)
        measureClock (account, parts);

    // What was measured so far cannot be compared with what comes.
    if (numUnsettled > 0)
    {
        --numUnsettled;
        measured = {};
    }

    return countXruns (account, roster, parts);
}

/* The node of a side that takes part in a cycle: the one that is measured, or else the first. */
const Part* DeviceFigures::findPart (const Account& account, std::size_t side) const
{
    const Part* found = nullptr;

    const auto consider = [&] (const Part& part)
    {
        if (part.node->interface == interface && isOn (part.node->kind, side == record)
            && (found == nullptr || part.cycle->id == sides[side].node))
            found = &part;
    };

    consider (account.driver);

    for (const auto& follower : account.followers)
        consider (follower);

    return found;
}

void DeviceFigures::measureSide (std::size_t index, const Part& part, const Account& account)
{
    auto& side = sides[index];
    const auto& driver = account.cycle->driver;
    const auto isRecord = index == record;
    const auto isStart = side.node != part.cycle->id || side.driver != driver.id
                         || (side.stopTime != 0 && driver.signal > side.stopTime);

    if (isStart)
    {
        ++counters.syncCount;
        side.numCycles = 0;
        side.stopTime = 0;
        log (driver.signal,
             isRecord ? EventType::listenAttachCompletion : EventType::talkAttachCompletion,
             part.cycle->id);
    }
    else
    {
        // When reports were lost, this cycle does not follow the last one that we know.
        if (account.previousSignal == side.signal && side.isPositionExpected && ! account.isLate
            && account.cycle->position != side.expectedPosition)
            ++counters.syncCount;

        if (account.previousSignal > 0 && driver.signal > account.previousSignal)
        {
            side.lastPeriod = driver.signal - account.previousSignal;
            (isRecord ? measured.record : measured.playback).add (side.lastPeriod);
        }
    }

    ++side.numCycles;
    ++side.bufferCount;
    side.node = part.cycle->id;
    side.driver = driver.id;
    side.signal = driver.signal;
    side.expectedPosition = account.cycle->position + account.cycle->duration;
    side.isPositionExpected = ! account.isLate;
    log (driver.signal, isRecord ? EventType::listenComplete : EventType::talkComplete, side.numCycles);
}

/* From the source's cycle to the nearest one of the sink; they are reported one after the other. Under one driver
    there is nothing to measure. */
void DeviceFigures::measureOffset()
{
    const auto& source = sides[record];

    if (source.node == 0 || source.stopTime != 0 || source.lastPeriod == 0 || source.driver == sides[playback].driver)
        return;

    auto distance = sides[playback].signal - source.signal;

    if (distance > source.lastPeriod / 2)
        distance -= source.lastPeriod;

    if (std::abs (distance) <= source.lastPeriod / 2)
        measured.offset.add (distance);
}

void DeviceFigures::measureFollowers (const Account& account, bool isClient)
{
    const auto& driver = account.driver;
    std::int64_t longestWait = -1;
    auto longestWork = isClient ? -1 : driver.finish - driver.begin;

    for (const auto& part : account.followers)
    {
        if (part.begin == 0 || (isClient && part.node->interface != interface))
            continue;

        // A client's work is its own, a device's is that of the whole graph.
        const auto workBegin = isClient ? part.awake : part.begin;
        const auto end = part.missedBy > 0 ? part.missedBy : part.finish;

        if (part.awake > 0)
            longestWait = std::max (longestWait, part.awake - part.signal);

        if (workBegin > 0 && end > 0)
            longestWork = std::max (longestWork, end - workBegin);

        if (part.node->kind != NodeKind::client)
            continue;

        if (part.awake > 0)
            log (part.awake, EventType::userClientEvent, part.cycle->id);

        if (part.finish > 0)
            log (part.finish, EventType::outputReady, part.cycle->id);
    }

    if (longestWait >= 0)
        measured.wakeup.add (longestWait);

    if (longestWork >= 0)
        measured.host.add (longestWork);
}

void DeviceFigures::measureClock (const Account& account, const std::array<const Part*, 2>& parts)
{
    const auto& cycle = *account.cycle;

    if (cycle.rate > 0)
        sampleRate = cycle.rate;

    if (cycle.duration > 0)
        bufferSize = cycle.duration;

    // Another device's clock says nothing about this one's, but newer PipeWires report a follower's own.
    const auto isDriver = account.driver.node->interface == interface;
    std::optional<std::uint64_t> delay;

    for (const auto* part : parts)
        if (! isDriver && part != nullptr && ! delay)
            delay = part->cycle->delay;

    const auto full = 2 * std::uint64_t { cycle.duration };

    if (full > 0)
        counters.fifoLevel = static_cast<std::uint32_t> (std::min (isDriver ? cycle.delay : delay.value_or (0), full)
                                                         * DriverProtocol::fullFifo / full);

    if (! isDriver)
        return;

    if (const auto change = cycle.rateDifference - loggedCorrection; std::abs (change) >= loggedCorrectionStep)
    {
        constexpr double millionths = 1'000'000;
        const auto parameter = std::clamp (cycle.rateDifference * millionths, 0.0, 4 * millionths);
        loggedCorrection = cycle.rateDifference;
        log (cycle.driver.signal,
             EventType::clockAdjust,
             static_cast<std::uint32_t> (std::lround (parameter)),
             static_cast<std::int8_t> (change > 0 ? 1 : -1));
    }
}

std::vector<Xrun>
    DeviceFigures::countXruns (const Account& account, const Roster& roster, const std::array<const Part*, 2>& parts)
{
    std::vector<Xrun> xruns;
    const std::array<std::uint32_t*, 2> totals { &counters.underruns, &counters.overflows };
    auto time = account.driver.signal;
    std::uint32_t numXruns = 0;

    for (std::size_t side : { playback, record })
    {
        if (parts[side] == nullptr)
            continue;

        const auto id = parts[side]->cycle->id;
        const auto isClient = parts[side]->node->kind == NodeKind::client;
        Xrun xrun { side == record, account.driver.signal, {} };

        // A player delays no source, a recorder no sink, and neither delays another device.
        for (const auto& part : account.followers)
            if (part.missedBy > 0
                && (part.cycle->id == id
                    || (! isClient
                        && (side == record ? roster.isConnected (id, part.cycle->id, account.driver.signal)
                                           : roster.isConnected (part.cycle->id, id, account.driver.signal)))))
            {
                xrun.time = std::max (xrun.time, part.missedBy);
                xrun.late.push_back (part);
            }

        // The late client caused the hardware's xrun, if there is one: they count as one.
        const auto count = std::max (isClient ? 0 : parts[side]->newXruns, xrun.late.empty() ? 0u : 1u);

        if (count == 0)
            continue;

        *totals[side] += count;
        numXruns = std::max (numXruns, count);
        time = std::max (time, xrun.time);
        xruns.push_back (std::move (xrun));
    }

    if (numXruns > 0)
    {
        events.markXrun (time / nanosecondsPerTick, MachineLayout::ticksPerSecond);
        log (time,
             EventType::debugCounts,
             counters.overflows + counters.underruns,
             static_cast<std::int8_t> (std::min (numXruns, 127u)));
    }

    return xruns;
}

void DeviceFigures::kernelComplained (std::int64_t now)
{
    ++counters.syncCount;
    log (now, EventType::bufferState, ++numComplaints);
}

//==============================================================================
void DeviceFigures::resetStatistics()
{
    measured = {};

    for (auto& side : sides)
        side.bufferCount = 0;
}

void DeviceFigures::clearCounters()
{
    counters.overflows = counters.underruns = counters.syncCount = 0;
}

StatisticsBlock DeviceFigures::getStatistics() const
{
    auto block = measured.makeBlock (nanosecondsPerTick);
    block.playbackBufferCount = static_cast<std::int32_t> (sides[playback].bufferCount);
    block.recordBufferCount = static_cast<std::int32_t> (sides[record].bufferCount);
    return block;
}

} // namespace PipeWire
