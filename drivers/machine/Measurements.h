#pragma once

#include "protocol/StatisticsBlock.h"

#include <cstdint>

namespace Machine
{

/** The times that a statistics block tells of, in any unit.

    No heap and no library: it also goes into a kernel driver. Used by one thread at a time.
*/
struct Measurements
{
    /** A time that is measured again and again. */
    struct Measurement
    {
        std::int64_t sum = 0, count = 0;
        std::int64_t maximum = StatisticsBlock::noMaximum, minimum = StatisticsBlock::noMinimum;

        void add (std::int64_t time)
        {
            // The times may come from outside: a sum that would overflow starts afresh.
            if (time < 0 ? sum < INT64_MIN - time : sum > INT64_MAX - time)
                sum = count = 0;

            sum += time;
            ++count;
            maximum = time > maximum ? time : maximum;
            minimum = time < minimum ? time : minimum;
        }
    };

    /** The block, with buffer counts of 0.

        @param unitsPerTick  how many of the unit are a tick of the block's
    */
    StatisticsBlock makeBlock (std::int64_t unitsPerTick = 1) const
    {
        const auto average = [unitsPerTick] (const Measurement& time)
        { return time.count == 0 ? 0 : time.sum / time.count / unitsPerTick; };
        const auto maximum = [unitsPerTick] (const Measurement& time)
        { return time.count == 0 ? 0 : time.maximum / unitsPerTick; };

        StatisticsBlock block {};
        block.playbackAverage = average (playback);
        block.playbackMaximum = maximum (playback);
        block.recordAverage = average (record);
        block.recordMaximum = maximum (record);
        block.wakeupAverage = average (wakeup);
        block.wakeupMaximum = maximum (wakeup);
        block.hostAverage = average (host);
        block.hostMaximum = maximum (host);
        block.offsetAverage = average (offset);
        block.offsetMaximum = offset.count == 0 ? StatisticsBlock::noMaximum : maximum (offset);
        block.offsetMinimum = offset.count == 0 ? StatisticsBlock::noMinimum : offset.minimum / unitsPerTick;
        return block;
    }

    Measurement playback, record, wakeup, host, offset;
};

} // namespace Machine
