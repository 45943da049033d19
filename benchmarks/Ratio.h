#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <functional>
#include <vector>

/** Times a piece of our code and what it is compared with by turns, and reports the median of the ratios beside the bar
    that it should stay below. The machine's speed cancels out, also where it changes meanwhile.
*/
inline void measureRatio (benchmark::State& state,
                          double bar,
                          const std::function<void()>& subject,
                          const std::function<void()>& baseline)
{
    using Clock = std::chrono::steady_clock;
    std::vector<double> ratios;

    const auto time = [] (const std::function<void()>& work)
    {
        const auto start = Clock::now();
        work();
        return std::chrono::duration<double> (Clock::now() - start).count();
    };

    subject();
    baseline();

    for (auto _ : state)
    {
        const auto baselineTime = time (baseline), subjectTime = time (subject);
        ratios.push_back (subjectTime / baselineTime);
        state.SetIterationTime (subjectTime);
    }

    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t> (ratios.size() / 2);
    std::nth_element (ratios.begin(), middle, ratios.end());
    state.counters["ratio"] = *middle;
    state.counters["bar"] = bar;
}
