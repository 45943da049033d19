#pragma once

#include <cstdint>

namespace Simulation
{

/** A small generator of repeatable numbers: the same seed gives the same sequence on every machine. */
class Random
{
public:
    explicit Random (std::uint64_t seed) : state (seed) {}

    std::uint64_t next()
    {
        state += 0x9E3779B97F4A7C15;
        auto value = state;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return value ^ (value >> 31);
    }

    /** A number from low to high, both included; high must not be below low, nor further than 2^62 from it. */
    std::int64_t between (std::int64_t low, std::int64_t high)
    {
        const auto range = static_cast<std::uint64_t> (high - low) + 1;
        return low + static_cast<std::int64_t> (next() % range);
    }

    /** True once in so many calls, on average; the number must be above 0. */
    bool onceIn (std::uint32_t number) { return next() % number == 0; }

private:
    std::uint64_t state;
};

} // namespace Simulation
