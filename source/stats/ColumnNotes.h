#pragma once

#include "device/HwInfoCaps.h"
#include "stats/Column.h"
#include <functional>
#include <optional>

/** What one reads by pointing at a column, or has read aloud: a list of its name and its figures, which lies over it
    and paints nothing. Texts are made when they are asked for, and no change is announced. Message thread.
*/
class ColumnNotes : public juce::Component
{
public:
    /** @param columnToExplain     outlives the notes; they take its size
        @param findBufferTime      milliseconds, against which times are judged; 0 when nobody knows
    */
    ColumnNotes (const Column& columnToExplain,
                 const juce::String& deviceName,
                 const HwInfoCaps&,
                 std::function<double()> findBufferTime);
    ~ColumnNotes() override;

    /** Notes whether the device answered when it was last asked. */
    void setAnswering (bool isAnswering);

    void resized() override;

private:
    class Note;
    using Text = std::function<juce::String()>;

    std::unique_ptr<juce::AccessibilityHandler> createAccessibilityHandler() override;
    void add (const juce::String& title, Text text, Text tip);
    juce::String describeDevice() const;
    juce::String judge (std::size_t row) const;

    const Column& column;
    const juce::String name;
    const HwInfoCaps caps;
    const std::function<double()> getBufferTime;
    std::optional<juce::Time> silentSince;
    juce::OwnedArray<Note> notes; // of the device, then of the figures

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ColumnNotes)
};
