#include "drivers/simulator/model/EventLog.h"

namespace Simulation
{

void EventLog::reset (std::int64_t newHoldTicks)
{
    restartWithLimit (maximumLength);
    lastRead = 0;
    holdTicks = newHoldTicks;
}

void EventLog::restartWithLimit (std::uint32_t newLimit)
{
    oldest = 0;
    length = 0;
    limit = newLimit < maximumLength ? newLimit : maximumLength;
    isHeld = false;
    lastTime = INT64_MIN;
}

void EventLog::append (Entry entry)
{
    if (entry.time <= lastTime)
        entry.time = lastTime + 1;

    if (isHeld && entry.time - lastRead > holdTicks)
        isHeld = false;

    if (isHeld || limit == 0)
        return;

    lastTime = entry.time;

    if (length == limit)
    {
        entries[oldest] = entry;
        oldest = (oldest + 1) % limit;
        return;
    }

    entries[(oldest + length) % limit] = entry;
    ++length;
}

bool EventLog::read (std::uint32_t index, std::int64_t now, Entry& entry)
{
    const auto isLast = index >= length || index == maximumLength - 1;

    isHeld = (isHeld || index == 0) && ! isLast;
    lastRead = now;

    if (index >= length)
        return false;

    entry = entries[(oldest + index) % limit];
    return true;
}

} // namespace Simulation
