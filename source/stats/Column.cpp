#include "stats/Column.h"

#include "device/Ticks.h"
#include "platform/AccessGuard.h"
#include "stats/StatisticsBlock.h"

using namespace StatisticsLayout;

Column::Column (const juce::String& deviceName) : name (deviceName)
{
    setTitle (deviceName);
}

//==============================================================================
namespace
{
/** The buffer-offset fields as the driver keeps them, ticks. */
struct BufferOffset
{
    std::int64_t average = 0, maximum = 0, minimum = 0;
};
} // namespace

#define FIELD(name) offsetof (StatisticsBlock, name)

void Column::computeValues (const StatisticsBlock* block, double msPerTick)
{
    if (block == nullptr)
        return;

    std::int64_t recordPeriod = 0;
    BufferOffset bufferOffset;

    const bool complete = AccessGuard::readBlock (
        block,
        [&] (const AccessGuard::BlockReader& reader)
        {
            const auto ticks = [&] (std::size_t field) { return reader.read<std::int64_t> (field); };
            const auto time = [&] (std::size_t field) { return static_cast<double> (ticks (field)) * msPerTick; };
            const auto count = [&] (std::size_t field)
            { return static_cast<double> (reader.read<std::int32_t> (field)); };

            recordPeriod = ticks (FIELD (recordAverage));

            valueOf (playbackCount) = count (FIELD (playbackBufferCount));
            valueOf (playbackMaximum) = time (FIELD (playbackMaximum));
            valueOf (playbackAverage) = time (FIELD (playbackAverage));
            valueOf (recordCount) = count (FIELD (recordBufferCount));
            valueOf (recordMaximum) = time (FIELD (recordMaximum));
            valueOf (recordAverage) = static_cast<double> (recordPeriod) * msPerTick;
            valueOf (wakeupMaximum) = time (FIELD (wakeupMaximum));
            valueOf (wakeupAverage) = time (FIELD (wakeupAverage));
            valueOf (hostMaximum) = time (FIELD (hostMaximum));
            valueOf (hostAverage) = time (FIELD (hostAverage));

            bufferOffset.maximum = ticks (FIELD (offsetMaximum));
            bufferOffset.average = ticks (FIELD (offsetAverage));
            bufferOffset.minimum = ticks (FIELD (offsetMinimum));
        });

    if (! complete)
        return;

    if (bufferOffset.maximum == StatisticsBlock::noMaximum)
        bufferOffset.maximum = 0;

    // An offset of more than half a period is nearer to the next buffer than to this one.
    if (bufferOffset.average > recordPeriod >> 1)
        for (auto* offset : { &bufferOffset.maximum, &bufferOffset.average, &bufferOffset.minimum })
            *offset = Ticks::difference (*offset, recordPeriod);

    valueOf (offsetMaximum) = static_cast<double> (bufferOffset.maximum) * msPerTick;
    valueOf (offsetAverage) = static_cast<double> (bufferOffset.average) * msPerTick;

    if (bufferOffset.minimum != StatisticsBlock::noMinimum)
        valueOf (offsetMinimum) = static_cast<double> (bufferOffset.minimum) * msPerTick;
}

#undef FIELD

void Column::setFirmwareCounters (std::uint32_t fifo,
                                  std::uint32_t underrunCount,
                                  std::uint32_t overflowCount,
                                  std::uint32_t syncs)
{
    constexpr double percentPerLevel = 100.0 / 1024.0;

    valueOf (fifoLevel) = fifo * percentPerLevel;
    valueOf (overflows) = overflowCount;
    valueOf (underruns) = underrunCount;
    valueOf (syncCount) = syncs;
}

//==============================================================================
static const char* getFormat (int row)
{
    switch (row)
    {
        case playbackCount:
        case recordCount:
        case overflows:
        case underruns:
        case syncCount:
            return "%.0f";

        case fifoLevel:
            return "%.0f %%";

        default:
            return "%0.3f msec";
    }
}

void Column::update (const StatisticsBlock* block, double msPerTick)
{
    computeValues (block, msPerTick);

    for (const auto row : valueRows)
        texts[static_cast<std::size_t> (row)] = juce::String::formatted (getFormat (row), valueOf (row));
}

//==============================================================================
namespace
{
constexpr float fontHeight = 12.0f;
constexpr int maximumLines = 1;
constexpr float minimumScale = 0.7f;
constexpr int boxInsetX = 4;
constexpr int boxInsetY = 2;
} // namespace

void Column::paint (juce::Graphics& g)
{
    const int rowHeight = getHeight() / numRows;

    g.setFont (juce::Font (fontHeight, juce::Font::bold));
    g.setColour (juce::Colours::white);
    g.drawFittedText (name, 0, 0, getWidth(), rowHeight, juce::Justification::centred, maximumLines, minimumScale);

    for (const auto row : valueRows)
        paintItem (g, row, rowHeight);
}

void Column::paintItem (juce::Graphics& g, int row, int rowHeight) const
{
    const int y = row * rowHeight + boxInsetY;
    const int height = rowHeight - 2 * boxInsetY;
    const int textInset = getWidth() / 16;

    g.setColour (juce::Colour (75, 75, 75));
    g.fillRect (boxInsetX, y, getWidth() - 2 * boxInsetX, height);

    g.setColour (juce::Colours::white);
    g.drawFittedText (getText (row),
                      textInset,
                      y,
                      getWidth() - 2 * textInset,
                      height,
                      juce::Justification::centredLeft,
                      maximumLines,
                      minimumScale);
}
