#include "stats/Column.h"

#include "device/Ticks.h"
#include "platform/AccessGuard.h"
#include "protocol/DriverProtocol.h"
#include "stats/StatisticsReport.h"
#include "text/DisplayText.h"
#include "text/FixedNumber.h"
#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <utility>

using namespace StatisticsLayout;

namespace
{
constexpr float fontHeight = 12.0f;
constexpr int maximumLines = 1;
constexpr float minimumScale = 0.7f;
constexpr int boxInsetX = 4;
constexpr int boxInsetY = 2;

bool looksAlike (const juce::PositionedGlyph& a, const juce::PositionedGlyph& b)
{
    return a.getCharacter() == b.getCharacter() && a.getLeft() == b.getLeft() && a.getRight() == b.getRight();
}

/** What of a box is between two places, from left to right. */
juce::Rectangle<int> getPart (juce::Rectangle<int> box, float left, float right)
{
    box.setHorizontalRange ({ static_cast<int> (left), static_cast<int> (std::ceil (right)) });
    return box;
}

/** Where the text in a box looks different from the one before it: what is painted anew is what this program costs. A
    glyph stays within its own width. Cut off on its left within that, it would come out a little darker.
*/
juce::Rectangle<int>
    findChange (juce::Rectangle<int> box, const juce::GlyphArrangement& before, const juce::GlyphArrangement& after)
{
    const auto* first = std::mismatch (after.begin(), after.end(), before.begin(), before.end(), looksAlike).first;
    const auto [end, endBefore] = std::mismatch (std::make_reverse_iterator (after.end()),
                                                 std::make_reverse_iterator (first),
                                                 std::make_reverse_iterator (before.end()),
                                                 std::make_reverse_iterator (before.begin()),
                                                 looksAlike);

    const auto rightOf = [] (const auto& layout, const auto* past)
    { return past == layout.begin() ? float { boxInsetX } : (past - 1)->getRight(); };

    return getPart (box,
                    rightOf (after, first),
                    std::max (rightOf (after, end.base()), rightOf (before, endBefore.base())));
}
} // namespace

Column::Column (const juce::String& deviceName)
    : name (deviceName),
      shownName (DisplayText::fromName (deviceName)),
      font (juce::Label().getFont().withHeight (fontHeight).boldened())
{
    setTitle (deviceName);
}

//==============================================================================
void Column::computeValues (const StatisticsBlock* block, double msPerTick)
{
    if (block == nullptr)
        return;

    std::int64_t period = 0;
    std::array<std::int64_t, numRows> offsets {}; // ticks, of the rows of that kind

    const auto readRows = [&] (const AccessGuard::BlockReader& reader)
    {
        period = reader.read<std::int64_t> (offsetof (StatisticsBlock, recordAverage));

        for (const auto row : valueRows)
        {
            const auto kind = rows[row].kind;
            const auto offset = rows[row].source;

            if (kind == RowKind::bufferCount)
                values[row] = reader.read<std::int32_t> (offset);
            else if (kind == RowKind::time)
                values[row] = static_cast<double> (reader.read<std::int64_t> (offset)) * msPerTick;
            else if (kind == RowKind::bufferOffset)
                offsets[row] = reader.read<std::int64_t> (offset);
        }
    };

    if (! AccessGuard::readBlock (block, readRows))
        return;

    constexpr auto maximumRow = findRow (RowKind::bufferOffset, offsetof (StatisticsBlock, offsetMaximum));
    constexpr auto minimumRow = findRow (RowKind::bufferOffset, offsetof (StatisticsBlock, offsetMinimum));
    constexpr auto averageRow = findRow (RowKind::bufferOffset, offsetof (StatisticsBlock, offsetAverage));

    if (offsets[maximumRow] == StatisticsBlock::noMaximum)
        offsets[maximumRow] = 0;

    // Rounds down, below zero, too.
    const auto halfPeriod = period >> 1;

    // An offset of more than half a period is nearer to the next buffer than to this one.
    const bool belongsToNext = offsets[averageRow] > halfPeriod;

    for (const auto row : { maximumRow, minimumRow, averageRow })
    {
        const auto ticks = belongsToNext ? Ticks::difference (offsets[row], period) : offsets[row];

        if (row != minimumRow || ticks != StatisticsBlock::noMinimum)
            values[row] = static_cast<double> (ticks) * msPerTick;
    }
}

void Column::setFirmwareCounters (const FirmwareCounters& counters)
{
    constexpr double percentPerLevel = 100.0 / DriverProtocol::fullFifo;

    for (const auto row : valueRows)
        if (const auto& figure = rows[row]; figure.isOfFirmware())
            values[row] = counters[figure.source] * (figure.kind == RowKind::fifoLevel ? percentPerLevel : 1.0);
}

//==============================================================================
static juce::String format (RowKind kind, double value)
{
    const bool isTime = kind == RowKind::time || kind == RowKind::bufferOffset;
    const auto* unit = isTime ? " msec" : kind == RowKind::fifoLevel ? " %" : "";
    const FixedNumber number (value, isTime ? 3 : 0);
    return juce::String::fromUTF8 (number.getText().data(), static_cast<int> (number.getText().size())) + unit;
}

void Column::update (const StatisticsBlock* block, double msPerTick)
{
    computeValues (block, msPerTick);

    for (const auto row : valueRows)
    {
        const auto bits = std::bit_cast<std::uint64_t> (values[row]);

        if (bits == formattedBits[row] && texts[row].isNotEmpty())
            continue;

        formattedBits[row] = bits;

        if (auto text = format (rows[row].kind, values[row]); text != texts[row])
        {
            texts[row] = std::move (text);
            const auto before = std::exchange (layouts[row], layOut (row));
            repaint (findChange (getBox (row), before, layouts[row]));
        }
    }
}

void Column::appendReport (juce::String& text, const HwInfoCaps& caps) const
{
    using StatisticsReport::lineEnd;

    const auto addVersion = [&] (const char* code, std::uint32_t version)
    { text << code << StatisticsReport::formatFirmwareVersion (version) << lineEnd; };

    const auto addFigure = [&] (std::size_t row)
    {
        constexpr int figuresColumn = 31;
        const auto label = "   " + juce::String (rows[row].reportLabel) + ":";
        text << label.paddedRight (' ', figuresColumn) << texts[row] << lineEnd;
    };

    text << name << lineEnd;
    addVersion ("ARM code: ", caps.getArmVersion());

    if (caps.hasDsp())
        addVersion ("DSP code: ", caps.getDspVersion());

    if (caps.hasFpga())
        addVersion ("FPGA code: ", caps.getFpgaVersion());

    text << lineEnd;

    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].kind == RowKind::blank)
            text << lineEnd;
        else if (rows[row].isItem() && ! rows[row].isOfFirmware())
            addFigure (row);

    // Of the firmware's figures the report has these two, the other way round than the view.
    addFigure (findRow (RowKind::eventCount, DriverProtocol::underrunsWord));
    addFigure (findRow (RowKind::eventCount, DriverProtocol::overflowsWord));
    text << lineEnd << lineEnd;
}

//==============================================================================
void Column::paint (juce::Graphics& g)
{
    g.setFont (font);
    g.setColour (juce::Colours::white);
    g.drawFittedText (shownName,
                      0,
                      0,
                      getWidth(),
                      getRowHeight(),
                      juce::Justification::centred,
                      maximumLines,
                      minimumScale);

    for (const auto row : valueRows)
        paintBox (g, row);
}

void Column::paintBox (juce::Graphics& g, std::size_t row) const
{
    const auto box = getBox (row);

    if (! g.clipRegionIntersects (box))
        return;

    g.setColour (juce::Colour (75, 75, 75));
    g.fillRect (box);
    g.setColour (juce::Colours::white);

    for (const auto& glyph : layouts[row])
        if (g.clipRegionIntersects (getPart (box, glyph.getLeft(), glyph.getRight())))
            glyph.draw (g);
}

void Column::resized()
{
    for (const auto row : valueRows)
        layouts[row] = layOut (row);
}

juce::GlyphArrangement Column::layOut (std::size_t row) const
{
    const int textInset = getWidth() / 16;
    const auto area = getBox (row).withX (textInset).withWidth (getWidth() - 2 * textInset).toFloat();

    // A copy of an empty layout: a new one reserves room for whole pages of glyphs.
    static const juce::GlyphArrangement empty;
    auto layout = empty;
    layout.addFittedText (font,
                          texts[row],
                          area.getX(),
                          area.getY(),
                          area.getWidth(),
                          area.getHeight(),
                          juce::Justification::centredLeft,
                          maximumLines,
                          minimumScale);
    return layout;
}

int Column::getRowHeight() const
{
    return getHeight() / static_cast<int> (numRows);
}

juce::Rectangle<int> Column::getBox (std::size_t row) const
{
    const int rowHeight = getRowHeight();
    return juce::Rectangle<int> (0, static_cast<int> (row) * rowHeight, getWidth(), rowHeight)
        .reduced (boxInsetX, boxInsetY);
}
