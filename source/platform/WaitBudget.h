#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>

/** How long the process waits for its drivers.

    All of them share one budget. Waiting uses it up, time in which nobody waits gives it back, and what somebody may
    wait is never all that is left: who is asked next may well answer. However many are silent or slow, they never hold
    the program up for longer than the whole of it. Any thread.
*/
class WaitBudget
{
public:
    using Duration = std::chrono::nanoseconds;
    using Time = std::chrono::steady_clock::time_point;

    /** The most that everybody together waits, and one who was late before; what an answer may take and cost nothing.
     */
    struct Limits
    {
        Duration whole, late, free;
    };

    explicit WaitBudget (const Limits& limitsToUse) : limits (limitsToUse) {}

    /** Somebody begins to wait.
        @param wasLate  so was this driver the last time: only others may draw on the last part, which is kept for those
                        that are asked after several silent ones
        @returns        how long they may
    */
    Duration begin (Time now, bool wasLate)
    {
        const std::scoped_lock locked (lock);

        if (numWaiting++ == 0)
            left = std::min (limits.whole, left + std::max (Duration (0), now - lastEnd));

        const auto share = (left - limits.whole / 4) / 2;
        return wasLate ? std::clamp (share, Duration (0), limits.late) : std::max (share, left / 64);
    }

    /** The wait is over. */
    void end (Time begun, Time now, bool answered)
    {
        const std::scoped_lock locked (lock);
        const auto cost = now - begun - (answered ? limits.free : Duration (0));
        left = std::clamp (left - cost, Duration (0), left);
        lastEnd = std::max (lastEnd, now);
        --numWaiting;
    }

private:
    const Limits limits;
    std::mutex lock;
    Duration left = limits.whole;
    Time lastEnd;
    int numWaiting = 0;
};
