#include "protocol/StatisticsBlock.h"
#include "stats/Column.h"
#include "tests/unit/support/Join.h"
#include "tests/unit/support/LooksLike.h"

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

/** Records the areas that a column asks to have repainted. */
struct Repaints : public juce::CachedComponentImage
{
    bool invalidate (const juce::Rectangle<int>& area) override
    {
        areas.add (area);
        return false;
    }

    bool invalidateAll() override { return false; }
    void paint (juce::Graphics&) override {}
    void releaseResources() override {}

    juce::RectangleList<int> areas;
};

/** Updates the column and returns the texts of some rows, separated by bars. */
juce::String update (Column& column, const StatisticsBlock* block, std::initializer_list<std::size_t> rowsToShow)
{
    column.update (block, microsecondTicks);
    return join (rowsToShow, "|", [&column] (std::size_t row) { return column.getText (row); });
}

TEST (ColumnTests, offsetsBeyondHalfAPeriodBelongToTheNextBuffer)
{
    auto block = makeBlock();
    block.offsetMaximum = 9000;
    block.offsetMinimum = 5500;
    Column column ("Deck");

    // Half of an odd period is rounded down, below 0, too.
    for (const auto& [period, average, expected] : { std::tuple { 10000, 6000, "-1.000 msec|-4.500 msec|-4.000 msec" },
                                                     std::tuple { 10001, 5000, "9.000 msec|5.500 msec|5.000 msec" },
                                                     std::tuple { 10001, 5001, "-1.001 msec|-4.501 msec|-5.000 msec" },
                                                     std::tuple { -3, -2, "9.000 msec|5.500 msec|-0.002 msec" } })
    {
        block.recordAverage = period;
        block.offsetAverage = average;
        EXPECT_EQ (update (column, &block, { 19, 20, 21 }), expected) << period;
    }
}

TEST (ColumnTests, offsetsWithoutASample)
{
    auto block = makeBlock();
    Column column ("Deck");
    EXPECT_EQ (update (column, &block, { 19, 20 }), "0.000 msec|0.000 msec");

    block.offsetMinimum = 1500;
    update (column, &block, {});
    block.offsetMinimum = StatisticsBlock::noMinimum;
    EXPECT_EQ (update (column, &block, { 19, 20 }), "0.000 msec|1.500 msec");

    block.recordAverage = 10000;
    block.offsetAverage = 6000;
    EXPECT_EQ (update (column, &block, { 19 }), "-10.000 msec");
}

/** Extreme values neither overflow nor show anything but numbers. */
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

TEST (ColumnTests, figuresAreSignedOrUnsignedAndStayWithoutABlock)
{
    auto block = makeBlock();
    Column column ("Deck");
    EXPECT_EQ (update (column, nullptr, { 1, 2, 24 }), "0|0.000 msec|0 %");

    block.playbackBufferCount = -5;
    block.playbackMaximum = -1000;
    update (column, &block, {});
    column.setFirmwareCounters ({ 0xFFFFFFFF, 3, 0, 0, 512, 0, 4 });
    EXPECT_EQ (update (column, nullptr, { 1, 2, 24, 25, 26, 27 }), "-5|-1.000 msec|50 %|4294967295|3|4");
}

TEST (ColumnTests, paintsTheBoxesOfItsFiguresAndNothingElse)
{
    Column column ("");
    constexpr int width = 150, rowHeight = 18, height = rowHeight * static_cast<int> (numRows);
    column.setSize (width, height);
    const auto paint = [&column] (const juce::RectangleList<int>& area, juce::Image image)
    {
        juce::Graphics g (image);
        g.reduceClipRegion (area);
        column.paint (g);
        return image;
    };
    const auto paintAll = [&]
    { return paint (column.getLocalBounds(), juce::Image (juce::Image::ARGB, width, height, true)); };
    const auto image = paintAll();

    for (std::size_t row = 0; row < numRows; ++row)
    {
        const int y = static_cast<int> (row) * rowHeight;
        const auto inside = rows[row].isItem() ? juce::Colour (75, 75, 75) : juce::Colour();
        EXPECT_EQ (image.getPixelAt (4, y + 2), inside) << row;
        EXPECT_EQ (image.getPixelAt (145, y + 15), inside) << row;
        EXPECT_EQ (image.getPixelAt (3, y + 1), juce::Colour()) << row;
        EXPECT_EQ (image.getPixelAt (146, y + 16), juce::Colour()) << row;
    }

    // Only the figure's own box is repainted, and repainting that much of the old image yields the new one.
    auto* repaints = new Repaints;
    column.setCachedComponentImage (repaints);
    column.setVisible (true);
    auto block = makeBlock();
    update (column, &block, {});
    const auto shown = paintAll();

    for (const auto ticks : { 5555, 5556, 5655, 99999, 100000, 1, 0 })
    {
        repaints->areas.clear();
        block.hostAverage = ticks;
        update (column, &block, {});
        EXPECT_TRUE (column.getBox (16).contains (repaints->areas.getBounds())) << ticks;
        EXPECT_TRUE (looksLike (paint (repaints->areas, shown), paintAll())) << ticks;
    }
}

} // namespace
