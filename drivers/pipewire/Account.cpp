#include "drivers/pipewire/Account.h"

#include <algorithm>
#include <utility>

namespace PipeWire
{

namespace
{
/* Unknown where the roster has no node of that id. */
const Node& findNode (const Roster& roster, std::uint32_t id, std::int64_t time)
{
    static const Node unknown;
    const auto* node = roster.find (id, time);
    return node == nullptr ? unknown : *node;
}
} // namespace

const Account* Accountant::take (const Cycle& cycle, const Roster& roster)
{
    // A late cycle is reported when it should have finished, and again when it has.
    auto& driver = drivers[cycle.driver.id];

    if (cycle.driver.signal <= driver.signal)
        return nullptr;

    account.cycle = &cycle;
    account.isLate = cycle.clockTime > cycle.driver.signal;
    account.previousSignal = findPreviousSignal (driver);
    account.driver.cycle = &cycle.driver;
    account.driver.node = &findNode (roster, cycle.driver.id, cycle.driver.signal);
    account.driver.begin = account.driver.signal = cycle.driver.signal;
    account.driver.finish = cycle.driver.finish;
    const auto newXruns = countNewXruns (cycle.driver.id, cycle.xruns);
    account.driver.newXruns = newXruns;
    account.followers.clear();

    for (const auto& follower : cycle.followers)
    {
        auto& part = account.followers.emplace_back (describe (follower));
        part.node = &findNode (roster, follower.id, cycle.driver.signal);

        // Older PipeWires report only a driver's count, which includes its followers': whose they are is not known.
        part.newXruns = follower.xruns ? countNewXruns (follower.id, *follower.xruns) : newXruns;
    }

    return &account;
}

/* PipeWire 0.3.65 notes each signal of a driver in another process twice, and reports the first time as the previous
    signal. Where the positions join, this cycle follows the last one that we know.
*/
std::int64_t Accountant::findPreviousSignal (Driver& driver) const
{
    const auto& cycle = *account.cycle;
    const auto position = account.isLate ? cycle.position - cycle.duration : cycle.position;
    const auto isNext = driver.signal > 0 && cycle.duration > 0 && position == driver.position;
    const auto lastSignal = std::exchange (driver.signal, cycle.driver.signal);
    driver.position = position + cycle.duration;

    if (isNext)
        driver.tellsPrevious = cycle.driver.previousSignal <= lastSignal;

    if (driver.tellsPrevious)
        return cycle.driver.previousSignal;

    return isNext ? lastSignal : 0;
}

Part Accountant::describe (const NodeCycle& follower) const
{
    const auto& driver = account.cycle->driver;

    // An asynchronous node, such as a client of newer PipeWires, has until the next signal to finish: its work is
    // reported with the next cycle.
    const auto isAsynchronous =
        follower.isAsynchronous.value_or (follower.signal < driver.signal && follower.signal == account.previousSignal);
    const auto begin = isAsynchronous ? account.previousSignal : driver.signal;
    Part part;
    part.cycle = &follower;

    if (follower.signal == 0 || follower.signal < begin)
        return part;

    part.begin = begin;
    part.signal = follower.signal;

    // What comes before its signal belongs to an earlier cycle.
    if (follower.awake >= follower.signal)
        part.awake = follower.awake;

    if (part.awake > 0 && follower.finish >= follower.awake && (follower.isFinished || isAsynchronous))
        part.finish = follower.finish;

    if (isAsynchronous ? part.finish == 0 : account.isLate && ! follower.isFinished)
        part.missedBy = isAsynchronous ? driver.signal : std::max (driver.finish, driver.signal);

    return part;
}

std::uint32_t Accountant::countNewXruns (std::uint32_t id, std::uint32_t newCount)
{
    const auto [position, isNew] = xruns.try_emplace (id, newCount);
    const auto before = std::exchange (position->second, newCount);
    return newCount > before ? newCount - before : 0;
}

void Accountant::forget (std::uint32_t id)
{
    drivers.erase (id);
    xruns.erase (id);
}

} // namespace PipeWire
