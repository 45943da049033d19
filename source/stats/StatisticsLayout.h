#pragma once

#include <array>

/** One row of the statistics: a group's header, a figure, or a blank between groups. */
struct StatisticsRow
{
    const char* label; /**< Null for a blank row. */
    bool isItem;       /**< True for a figure. */
};

/** The rows that the main view's labels, the columns' figures and the report share; a row's index is its key. */
namespace StatisticsLayout
{

inline constexpr int numRows = 28;

inline constexpr std::array<StatisticsRow, numRows> rows { {
    { "Playback", false },    { "Buffer count", true }, { "Maximum time", true },   { "Average time", true },
    { nullptr, false },       { "Record", false },      { "Buffer count", true },   { "Maximum time", true },
    { "Average time", true }, { nullptr, false },       { "ASIO wakeup", false },   { "Maximum time", true },
    { "Average time", true }, { nullptr, false },       { "ASIO host", false },     { "Maximum time", true },
    { "Average time", true }, { nullptr, false },       { "Buffer offset", false }, { "Maximum time", true },
    { "Minimum time", true }, { "Average time", true }, { nullptr, false },         { "Firmware", false },
    { "FIFO level", true },   { "Overflow", true },     { "Underrun", true },       { "Sync count", true },
} };

/** Rows of the figures. */
enum Row
{
    playbackCount = 1,
    playbackMaximum = 2,
    playbackAverage = 3,
    recordCount = 6,
    recordMaximum = 7,
    recordAverage = 8,
    wakeupMaximum = 11,
    wakeupAverage = 12,
    hostMaximum = 15,
    hostAverage = 16,
    offsetMaximum = 19,
    offsetMinimum = 20,
    offsetAverage = 21,
    fifoLevel = 24,
    overflows = 25,
    underruns = 26,
    syncCount = 27
};

/** The figures, in the order of their rows. */
inline constexpr std::array<int, 17> valueRows { playbackCount, playbackMaximum, playbackAverage, recordCount,
                                                 recordMaximum, recordAverage,   wakeupMaximum,   wakeupAverage,
                                                 hostMaximum,   hostAverage,     offsetMaximum,   offsetMinimum,
                                                 offsetAverage, fifoLevel,       overflows,       underruns,
                                                 syncCount };

/** True when exactly the rows that are items are figures' rows. */
constexpr bool valueRowsAreTheItems()
{
    std::size_t next = 0;

    for (int row = 0; row < numRows; ++row)
        if (rows[static_cast<std::size_t> (row)].isItem)
            if (next >= valueRows.size() || valueRows[next++] != row)
                return false;

    return next == valueRows.size();
}

static_assert (valueRowsAreTheItems());

} // namespace StatisticsLayout
