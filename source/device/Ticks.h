#pragma once

#include <cstdint>

/** Arithmetic on the driver's counter values, which can be anything. */
namespace Ticks
{

/** a - b; wraps where it would overflow. */
constexpr std::int64_t difference (std::int64_t a, std::int64_t b) noexcept
{
    return static_cast<std::int64_t> (static_cast<std::uint64_t> (a) - static_cast<std::uint64_t> (b));
}

} // namespace Ticks
