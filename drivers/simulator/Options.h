#pragma once

#include "drivers/machine/CommandLine.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace Simulation
{

inline constexpr std::uint32_t maximumInterfaces = 64;

/** Device-instance ids of so many host controllers. */
std::vector<std::string> makeControllers (std::uint32_t number);

/** What the simulator is started with. */
struct Options
{
    std::string machine;                        /**< Path of the machine folder; empty: the usual one. */
    std::vector<std::string> names;             /**< One interface for each; an empty name lets the simulator choose. */
    std::optional<std::uint32_t> numInterfaces; /**< None: one for each name, or the usual number. */
    std::vector<std::string> controllers = makeControllers (1);
    std::uint32_t sampleRate = 48000; /**< Hz. */
    std::uint32_t bufferSize = 256;   /**< Sample frames. */
    std::uint64_t seed = 1;
    bool isClockOrdered = false; /**< Time passes by order only. */
};

/** What is read goes into these options, which have to stay where they are. */
Machine::CommandLine describeCommandLine (Options& options);

/** An empty string when this can be a device's name, else one line that says why not. */
std::string checkName (std::string_view name);

/** Reads a decimal number, digits and nothing else; false when it is none or too large for its type. */
template <typename Number>
bool parseNumber (std::string_view text, Number& number)
{
    const auto* end = text.data() + text.size();
    Number result {};
    const auto [position, error] = std::from_chars (text.data(), end, result);

    static_assert (std::is_unsigned_v<Number>, "a sign would pass for a digit");

    if (error != std::errc() || position != end)
        return false;

    number = result;
    return true;
}

} // namespace Simulation
