#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** The toolkit's look, in which every text is drawn in the interface's own typeface, and only the characters that this
    lacks come from another one. Message thread.
*/
class TextLook : public juce::LookAndFeel_V4
{
public:
    /** Whether the machine has any typeface that can be drawn with. */
    static bool canDraw();

    juce::Typeface::Ptr getTypefaceForFont (const juce::Font&) override;

    /** A tip is narrow enough for the main window with one column. */
    juce::Rectangle<int> getTooltipBounds (const juce::String&, juce::Point<int>, juce::Rectangle<int>) override;
    void drawTooltip (juce::Graphics&, const juce::String&, int width, int height) override;

private:
    juce::TextLayout layOutTip (const juce::String&);
};
