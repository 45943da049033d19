#pragma once

#include <cstdint>

namespace Machine
{

/** What the counter of a machine folder counts in a second. */
inline constexpr std::int64_t ticksPerSecond = 10'000'000;

/** The counter's present value: CLOCK_MONOTONIC in ticks of 100 ns. */
std::int64_t readClock();

} // namespace Machine
