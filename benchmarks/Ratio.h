#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <functional>
#include <vector>

/** Times a piece of our code and what it is compared with by turns, and reports the ratio of their medians beside
    the bar that it should stay below. The machine's speed cancels out.
*/
inline void measureRatio (benchmark::State& state,
                          double bar,
                          const std::function<void()>& subject,
                          const std::function<void()>& baseline)
{
    using Clock = std::chrono::steady_clock;
    std::vector<double> subjectTimes, baselineTimes;

    const auto time = [] (const std::function<void()>& work)
    {
        const auto start = Clock::now();
        work();
        return std::chrono::duration<double> (Clock::now() - start).count();
    };

    const auto median = [] (std::vector<double>& times)
    {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t> (times.size() / 2);
        std::nth_element (times.begin(), middle, times.end());
        return *middle;
    };

    subject();
    baseline();

    for (auto _ : state)
    {
        baselineTimes.push_back (time (baseline));
        subjectTimes.push_back (time (subject));
        state.SetIterationTime (subjectTimes.back());
    }

    state.counters["ratio"] = median (subjectTimes) / median (baselineTimes);
    state.counters["bar"] = bar;
}
