#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>

/** How long the process waits for drivers that do not answer.

    All of them share one allowance: waiting in vain uses it up, and time that passes without waiting gives it back.
    However many are silent, they never hold the program up for longer than the whole of it. Any thread.
*/
class Patience
{
public:
    using Duration = std::chrono::nanoseconds;
    using Time = std::chrono::steady_clock::time_point;

    static constexpr Duration whole = std::chrono::milliseconds (1800);

    /** The process's own. */
    static Patience& get()
    {
        static Patience patience;
        return patience;
    }

    /** How long somebody may wait from now on. Whatever is left is never all for one: who is asked next may well
       answer.
        @param wasLate   this driver did not answer in time when it was last waited for: it is given little
    */
    Duration getLimit (Time now, bool wasLate)
    {
        const std::scoped_lock locked (lock);
        left = std::min (whole, left + std::max (Duration (0), now - lastWait));
        lastWait = now;
        return std::max (wasLate ? Duration (0) : (left - reserve) / 2, left / share);
    }

    /** Counts a wait. One that had an answer costs only what is beyond the time that an answer may take. */
    void waited (Time start, Time end, bool answered)
    {
        const std::scoped_lock locked (lock);
        const auto cost = end - start - (answered ? ordinary : Duration (0));
        left = std::clamp (left - cost, Duration (0), left);
        lastWait = std::max (lastWait, end);
    }

private:
    /** Kept for those that are asked after several silent ones, in small shares. */
    static constexpr Duration reserve = whole / 3;
    static constexpr int share = 64;
    static constexpr Duration ordinary = std::chrono::milliseconds (100);

    std::mutex lock;
    Duration left = whole;
    Time lastWait;
};
