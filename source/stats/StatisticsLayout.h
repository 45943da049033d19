#pragma once

#include "protocol/StatisticsBlock.h"
#include <array>

/** What a row of the statistics is, which decides how its figure is read and written. */
enum class RowKind
{
    blank,
    header,
    bufferCount,  /**< A count of the driver's. */
    time,         /**< A time of the driver's. */
    bufferOffset, /**< The same, which wraps at a period and can be without a sample. */
    fifoLevel,    /**< The firmware's, in percent. */
    eventCount    /**< A count of the firmware's. */
};

/** One row of the statistics: a group's header, a figure, or a blank between groups. */
struct StatisticsRow
{
    RowKind kind = RowKind::blank;
    const char* label = nullptr;       /**< Null for a blank row. */
    const char* reportLabel = nullptr; /**< Of a figure that the report has. */
    std::size_t field = 0;             /**< Where a figure of the driver's is in its StatisticsBlock, bytes. */

    constexpr bool isItem() const { return kind != RowKind::blank && kind != RowKind::header; }
};

/** The rows that the main view's labels, the columns' figures and the report share; a row's index is its key. */
namespace StatisticsLayout
{

inline constexpr std::size_t numRows = 28;

inline constexpr std::array<StatisticsRow, numRows> rows { {
    { RowKind::header, "Playback" },
    { RowKind::bufferCount, "Buffer count", "Playback count", offsetof (StatisticsBlock, playbackBufferCount) },
    { RowKind::time, "Maximum time", "Playback max time", offsetof (StatisticsBlock, playbackMaximum) },
    { RowKind::time, "Average time", "Playback average time", offsetof (StatisticsBlock, playbackAverage) },
    {},
    { RowKind::header, "Record" },
    { RowKind::bufferCount, "Buffer count", "Record count", offsetof (StatisticsBlock, recordBufferCount) },
    { RowKind::time, "Maximum time", "Record max time", offsetof (StatisticsBlock, recordMaximum) },
    { RowKind::time, "Average time", "Record average time", offsetof (StatisticsBlock, recordAverage) },
    {},
    { RowKind::header, "ASIO wakeup" },
    { RowKind::time, "Maximum time", "ASIO wakeup max time", offsetof (StatisticsBlock, wakeupMaximum) },
    { RowKind::time, "Average time", "ASIO wakeup average time", offsetof (StatisticsBlock, wakeupAverage) },
    {},
    { RowKind::header, "ASIO host" },
    { RowKind::time, "Maximum time", "ASIO host max time", offsetof (StatisticsBlock, hostMaximum) },
    { RowKind::time, "Average time", "ASIO host average time", offsetof (StatisticsBlock, hostAverage) },
    {},
    { RowKind::header, "Buffer offset" },
    { RowKind::bufferOffset, "Maximum time", "Buffer offset max time", offsetof (StatisticsBlock, offsetMaximum) },
    { RowKind::bufferOffset, "Minimum time", "Buffer offset min time", offsetof (StatisticsBlock, offsetMinimum) },
    { RowKind::bufferOffset, "Average time", "Buffer offset average time", offsetof (StatisticsBlock, offsetAverage) },
    {},
    { RowKind::header, "Firmware" },
    { RowKind::fifoLevel, "FIFO level" },
    { RowKind::eventCount, "Overflow", "Overflows" },
    { RowKind::eventCount, "Underrun", "Underruns" },
    { RowKind::eventCount, "Sync count" },
} };

/** Rows that are more than their kind to somebody. */
enum NamedRow : std::size_t
{
    offsetMaximumRow = 19,
    offsetMinimumRow,
    offsetAverageRow,
    fifoLevelRow = 24,
    overflowRow,
    underrunRow,
    syncCountRow
};

/** Indices of the figures, in the order of the rows. */
inline constexpr auto valueRows = []
{
    std::array<std::size_t, 17> found {};
    std::size_t count = 0;

    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].isItem())
            found.at (count++) = row;

    return count == found.size() ? found : throw "there are more or fewer figures";
}();

} // namespace StatisticsLayout
