#include "stats/Column.h"
#include "stats/StatisticsBlock.h"

#include <gtest/gtest.h>

using namespace StatisticsLayout;

namespace
{

constexpr double microsecondTicks = 1000.0 / 1000000;

StatisticsBlock makeBlock()
{
    StatisticsBlock block {};
    block.offsetMaximum = StatisticsBlock::noMaximum;
    block.offsetMinimum = StatisticsBlock::noMinimum;
    return block;
}

/** Texts of rows after an update, separated by bars. */
juce::String update (Column& column, const StatisticsBlock* block, std::initializer_list<std::size_t> rowsToShow)
{
    column.update (block, microsecondTicks);
    juce::StringArray shown;

    for (const auto row : rowsToShow)
        shown.add (column.getText (row));

    return shown.joinIntoString ("|");
}

TEST (ColumnTests, everyFigureComesFromItsField)
{
    auto block = makeBlock();
    block.playbackAverage = 1001;
    block.playbackMaximum = 2002;
    block.recordAverage = 10000;
    block.recordMaximum = 3003;
    block.wakeupAverage = 4004;
    block.wakeupMaximum = 5005;
    block.hostAverage = 6006;
    block.hostMaximum = -7007;
    block.playbackBufferCount = 12;
    block.recordBufferCount = -1;
    block.offsetAverage = 5000;
    block.offsetMaximum = 5001;
    block.offsetMinimum = 4999;

    Column column ("Deck");
    EXPECT_EQ (update (column, &block, { 1, 2, 3, 6, 7, 8 }), "12|2.002 msec|1.001 msec|-1|3.003 msec|10.000 msec");
    EXPECT_EQ (update (column, &block, { 11, 12, 15, 16 }), "5.005 msec|4.004 msec|-7.007 msec|6.006 msec");
    EXPECT_EQ (update (column, &block, { 19, 20, 21 }), "5.001 msec|4.999 msec|5.000 msec");
}

TEST (ColumnTests, offsetsBeyondHalfAPeriodBelongToTheNextBuffer)
{
    auto block = makeBlock();
    block.recordAverage = 10000;
    block.offsetAverage = 6000;
    block.offsetMaximum = 9000;
    block.offsetMinimum = 5500;

    Column column ("Deck");
    EXPECT_EQ (update (column, &block, { 19, 20, 21 }), "-1.000 msec|-4.500 msec|-4.000 msec");

    block.recordAverage = 10001;
    block.offsetAverage = 5000;
    EXPECT_EQ (update (column, &block, { 21 }), "5.000 msec") << "half of an odd period is rounded down";
    block.offsetAverage = 5001;
    EXPECT_EQ (update (column, &block, { 21 }), "-5.000 msec");

    block.recordAverage = -3;
    block.offsetAverage = -2;
    EXPECT_EQ (update (column, &block, { 21 }), "-0.002 msec") << "half of -3 is -2";
}

TEST (ColumnTests, offsetsWithoutASample)
{
    auto block = makeBlock();
    Column column ("Deck");
    EXPECT_EQ (update (column, &block, { 19, 20 }), "0.000 msec|0.000 msec");

    block.offsetMinimum = 1500;
    block.offsetMaximum = 2500;
    update (column, &block, {});
    block.offsetMinimum = StatisticsBlock::noMinimum;
    block.offsetMaximum = StatisticsBlock::noMaximum;
    EXPECT_EQ (update (column, &block, { 19, 20 }), "0.000 msec|1.500 msec");

    block.recordAverage = 10000;
    block.offsetAverage = 6000;
    EXPECT_EQ (update (column, &block, { 19 }), "-10.000 msec");
}

/** The extremes must neither overflow nor show anything that is no number. */
TEST (ColumnTests, extremeTicksAreDefined)
{
    constexpr std::int64_t extremes[] { INT64_MIN, INT64_MIN + 1, -1, 0, 1, INT64_MAX - 1, INT64_MAX };
    Column column ("Deck");

    for (const auto period : extremes)
        for (const auto average : extremes)
            for (const auto offset : extremes)
            {
                auto block = makeBlock();
                block.recordAverage = period;
                block.offsetAverage = average;
                block.offsetMaximum = block.offsetMinimum = offset;
                EXPECT_FALSE (update (column, &block, { 8, 19, 20, 21 }).containsAnyOf ("fax"));
            }
}

TEST (ColumnTests, firmwareCountersAreUnsignedAndTheLevelAPercentage)
{
    Column column ("Deck");
    EXPECT_EQ (column.getText (fifoLevelRow), "");

    column.setFirmwareCounters (512, 3, 0xFFFFFFFF, 4);
    EXPECT_EQ (update (column, nullptr, { 24, 25, 26, 27 }), "50 %|4294967295|3|4");
    column.setFirmwareCounters (1023, 0, 0, 0);
    EXPECT_EQ (update (column, nullptr, { 24 }), "100 %");
}

TEST (ColumnTests, withoutABlockTheFiguresStay)
{
    auto block = makeBlock();
    Column column ("Deck");
    EXPECT_EQ (update (column, nullptr, { 1, 2, 24 }), "0|0.000 msec|0 %");

    block.playbackBufferCount = 5;
    block.playbackMaximum = 1000;
    update (column, &block, {});
    EXPECT_EQ (update (column, nullptr, { 1, 2 }), "5|1.000 msec");
}

TEST (ColumnTests, onlyRowsThatReadDifferentlyAreToBeRepainted)
{
    auto block = makeBlock();
    Column column ("Deck");
    EXPECT_EQ (column.update (&block, microsecondTicks).count(), valueRows.size()) << "nothing was shown before";
    EXPECT_TRUE (column.update (&block, microsecondTicks).none());

    block.playbackBufferCount = 1;
    block.hostAverage = 1;
    column.setFirmwareCounters (1, 0, 0, 0); // 0.1 %, which is shown as before
    EXPECT_EQ (column.update (&block, microsecondTicks), Column::Rows().set (1).set (16));
}

TEST (ColumnTests, paintsItsBoxesAndNothingElse)
{
    Column column ("");
    column.setSize (150, 504);
    juce::Image image (juce::Image::ARGB, 150, 504, true);
    juce::Graphics g (image);
    column.paint (g);

    const juce::Colour box (75, 75, 75);

    for (std::size_t row = 0; row < numRows; ++row)
    {
        const bool isItem = rows[row].isItem();
        const int y = static_cast<int> (row) * 18;

        for (const auto& [x, dy, inside] : { std::tuple { 4, 2, true },
                                             std::tuple { 145, 15, true },
                                             std::tuple { 3, 2, false },
                                             std::tuple { 146, 15, false },
                                             std::tuple { 75, 1, false },
                                             std::tuple { 75, 16, false } })
            EXPECT_EQ (image.getPixelAt (x, y + dy), isItem && inside ? box : juce::Colour()) << row << " " << x;
    }
}

} // namespace
