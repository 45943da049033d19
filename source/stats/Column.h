#pragma once

#include "device/HwDevice.h"
#include "stats/StatisticsLayout.h"
#include <juce_gui_basics/juce_gui_basics.h>

/** One device's statistics: the figures, their texts, and the component that shows them.

    It draws boxed values only; the labels beside them and the background are the main view's. It knows nothing of
    its device but the name. Message thread.
*/
class Column : public juce::Component
{
public:
    explicit Column (const juce::String& deviceName);

    /** Takes the timing figures from the driver's block.

        The block may vanish at any moment: figures read until then are new, the later ones keep their values.

        @param block        null: all figures keep their values
        @param msPerTick    milliseconds per tick of the performance counter
    */
    void computeValues (const StatisticsBlock* block, double msPerTick);

    /** Takes the firmware's figures; a full FIFO is 100 %. */
    void setFirmwareCounters (const FirmwareCounters& counters);

    /** Computes the values, rewrites the text of every figure, and repaints what looks different. */
    void update (const StatisticsBlock* block, double msPerTick);

    /** Appends the device's section of the statistics report. */
    void appendReport (juce::String& text, const HwInfoCaps& caps) const;

    /** A figure: milliseconds, percent or a count. */
    double getValue (std::size_t row) const { return values[row]; }

    /** A figure's text as it is shown; empty until the first update. */
    const juce::String& getText (std::size_t row) const { return texts[row]; }

    /** Where a figure is shown, within the column. */
    juce::Rectangle<int> getBox (std::size_t row) const;

    void paint (juce::Graphics&) override;
    void resized() override;

private:
    void paintBox (juce::Graphics&, std::size_t row) const;
    juce::GlyphArrangement layOut (std::size_t row) const;
    int getRowHeight() const;

    const juce::String name, shownName;
    std::array<double, StatisticsLayout::numRows> values {};
    std::array<std::uint64_t, StatisticsLayout::numRows> formattedBits {}; // of the values that the texts show
    std::array<juce::String, StatisticsLayout::numRows> texts;
    std::array<juce::GlyphArrangement, StatisticsLayout::numRows> layouts; // of the texts
    const juce::Font font;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Column)
};
