#pragma once

#include "device/Ticks.h"

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

    /** False for a counter without a rate, whose ticks are no time. */
    bool hasTime() const { return frequency != 0; }

    /** Milliseconds since the counter's origin; only with hasTime. */
    double eventTimeMs() const { return convertTicks (timestamp, 1000.0); }

    /** Milliseconds since another event; only with hasTime. */
    double msSince (const EventRecord& other) const
    {
        return convertTicks (Ticks::difference (timestamp, other.timestamp), 1000.0);
    }

    /** Microseconds since the event before it in time; only with hasTime. */
    double timeDeltaUs() const { return convertTicks (timeDelta, 1000000.0); }

private:
    double convertTicks (std::int64_t ticks, double perSecond) const
    {
        return static_cast<double> (ticks) * perSecond / static_cast<double> (frequency);
    }
};
