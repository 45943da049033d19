#pragma once

#include <cstdint>
#include <juce_core/juce_core.h>

/** One event of a driver's log. */
struct EventRecord
{
    std::int64_t timestamp = 0;     /**< Counter value, ticks. */
    std::int64_t frequency = 0;     /**< Ticks per second, as the driver reported it with the event. */
    std::int64_t timeDelta = 0;     /**< Ticks since the event before it in time; 0 for the first. */
    std::int32_t type = 0;          /**< Index into the event names. */
    std::uint32_t param = 0;        /**< Its meaning depends on the type. */
    std::uint8_t deviceOrdinal = 0; /**< Index into the list's device names. */
    std::int8_t auxValue = 0;       /**< A small value of the driver's, shown behind the row number. */

    /** Ticks of this event's counter in seconds times the scale; only for a counter that has a rate. */
    double convertTicks (std::int64_t ticks, double scale) const
    {
        return static_cast<double> (ticks) * scale / static_cast<double> (frequency);
    }

    /** Text of the same by a printf format; "?" when the counter has no rate. */
    juce::String describeTicks (const char* format, std::int64_t ticks, double scale) const
    {
        return frequency == 0 ? juce::String ("?") : juce::String::formatted (format, convertTicks (ticks, scale));
    }

    static constexpr double toMilliseconds = 1000.0;
    static constexpr double toMicroseconds = 1000000.0;
};
