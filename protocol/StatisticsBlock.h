#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

/** The driver's timing statistics of one device, little-endian.

    The driver owns and writes the block and makes it readable in this process (MapStatistics hands out its
    address); it is read in place, field by field, unsynchronised, and may vanish at any moment. Times are
    signed counts of the performance counter. Shared with the simulator's model, so it needs no library.
*/
struct StatisticsBlock
{
    std::int64_t playbackAverage;
    std::int64_t playbackMaximum;
    std::int64_t unused1;
    std::int64_t recordAverage; /**< Also the period at which the buffer offset wraps. */
    std::int64_t recordMaximum;
    std::int64_t unused2[4];
    std::int64_t wakeupAverage;
    std::int64_t wakeupMaximum;
    std::int64_t unused3;
    std::int64_t hostAverage;
    std::int64_t hostMaximum;
    std::int32_t unused4[3];
    std::int32_t playbackBufferCount;
    std::int32_t recordBufferCount;
    std::int64_t offsetAverage;
    std::int64_t offsetMaximum; /**< noMaximum while there is no sample. */
    std::int64_t offsetMinimum; /**< noMinimum while there is no sample. */

    static constexpr std::int64_t noMaximum = INT64_MIN;
    static constexpr std::int64_t noMinimum = INT64_MAX;
};

#pragma pack(pop)

static_assert (sizeof (StatisticsBlock) == 156);
static_assert (offsetof (StatisticsBlock, playbackAverage) == 0x00);
static_assert (offsetof (StatisticsBlock, playbackMaximum) == 0x08);
static_assert (offsetof (StatisticsBlock, unused1) == 0x10);
static_assert (offsetof (StatisticsBlock, recordAverage) == 0x18);
static_assert (offsetof (StatisticsBlock, recordMaximum) == 0x20);
static_assert (offsetof (StatisticsBlock, unused2) == 0x28);
static_assert (offsetof (StatisticsBlock, wakeupAverage) == 0x48);
static_assert (offsetof (StatisticsBlock, wakeupMaximum) == 0x50);
static_assert (offsetof (StatisticsBlock, unused3) == 0x58);
static_assert (offsetof (StatisticsBlock, hostAverage) == 0x60);
static_assert (offsetof (StatisticsBlock, hostMaximum) == 0x68);
static_assert (offsetof (StatisticsBlock, unused4) == 0x70);
static_assert (offsetof (StatisticsBlock, playbackBufferCount) == 0x7c);
static_assert (offsetof (StatisticsBlock, recordBufferCount) == 0x80);
static_assert (offsetof (StatisticsBlock, offsetAverage) == 0x84);
static_assert (offsetof (StatisticsBlock, offsetMaximum) == 0x8c);
static_assert (offsetof (StatisticsBlock, offsetMinimum) == 0x94);
