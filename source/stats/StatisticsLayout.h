#pragma once

#include "protocol/DriverProtocol.h"
#include "protocol/StatisticsBlock.h"
#include <algorithm>
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
    const char* label = nullptr; /**< Null for a blank row. */

    /** Where a figure comes from: the driver's, the offset in its StatisticsBlock, bytes; the firmware's, the word in
        the reply to ReadFirmwareCounters.
    */
    std::size_t source = 0;

    const char* reportLabel = nullptr; /**< Of a figure that the report has. */

    constexpr bool isItem() const { return kind != RowKind::blank && kind != RowKind::header; }
    constexpr bool isOfFirmware() const { return kind == RowKind::fifoLevel || kind == RowKind::eventCount; }
};

/** The rows that the main view's labels, the columns' figures and the report share; a row's index is its key. */
namespace StatisticsLayout
{

inline constexpr auto rows = std::to_array<StatisticsRow> ({
    { RowKind::header, "Playback" },
    { RowKind::bufferCount, "Buffer count", offsetof (StatisticsBlock, playbackBufferCount), "Playback count" },
    { RowKind::time, "Maximum time", offsetof (StatisticsBlock, playbackMaximum), "Playback max time" },
    { RowKind::time, "Average time", offsetof (StatisticsBlock, playbackAverage), "Playback average time" },
    {},
    { RowKind::header, "Record" },
    { RowKind::bufferCount, "Buffer count", offsetof (StatisticsBlock, recordBufferCount), "Record count" },
    { RowKind::time, "Maximum time", offsetof (StatisticsBlock, recordMaximum), "Record max time" },
    { RowKind::time, "Average time", offsetof (StatisticsBlock, recordAverage), "Record average time" },
    {},
    { RowKind::header, "ASIO wakeup" },
    { RowKind::time, "Maximum time", offsetof (StatisticsBlock, wakeupMaximum), "ASIO wakeup max time" },
    { RowKind::time, "Average time", offsetof (StatisticsBlock, wakeupAverage), "ASIO wakeup average time" },
    {},
    { RowKind::header, "ASIO host" },
    { RowKind::time, "Maximum time", offsetof (StatisticsBlock, hostMaximum), "ASIO host max time" },
    { RowKind::time, "Average time", offsetof (StatisticsBlock, hostAverage), "ASIO host average time" },
    {},
    { RowKind::header, "Buffer offset" },
    { RowKind::bufferOffset, "Maximum time", offsetof (StatisticsBlock, offsetMaximum), "Buffer offset max time" },
    { RowKind::bufferOffset, "Minimum time", offsetof (StatisticsBlock, offsetMinimum), "Buffer offset min time" },
    { RowKind::bufferOffset, "Average time", offsetof (StatisticsBlock, offsetAverage), "Buffer offset average time" },
    {},
    { RowKind::header, "Firmware" },
    { RowKind::fifoLevel, "FIFO level", DriverProtocol::fifoLevelWord },
    { RowKind::eventCount, "Overflow", DriverProtocol::overflowsWord, "Overflows" },
    { RowKind::eventCount, "Underrun", DriverProtocol::underrunsWord, "Underruns" },
    { RowKind::eventCount, "Sync count", DriverProtocol::syncCountWord },
});

inline constexpr auto numRows = rows.size();

/** The row of a figure; does not compile when there is none. */
consteval std::size_t findRow (RowKind kind, std::size_t source)
{
    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].kind == kind && rows[row].source == source)
            return row;

    throw "there is no such figure";
}

/** Indices of the figures, in the order of the rows. */
inline constexpr auto valueRows = []
{
    constexpr auto isItem = [] (const StatisticsRow& row) { return row.isItem(); };
    std::array<std::size_t, std::count_if (rows.begin(), rows.end(), isItem)> found {};
    std::size_t count = 0;

    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].isItem())
            found[count++] = row;

    return found;
}();

} // namespace StatisticsLayout
