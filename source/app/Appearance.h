#pragma once

#include "text/TextLook.h"

/** How everything is drawn: as the toolkit has it, but for what would be hard to see. The default for all windows as
    long as it lives. Message thread.
*/
class Appearance : public TextLook
{
public:
    Appearance();
    ~Appearance() override;

    /** A line of two colours, one of which is seen on any ground: black, white and the buttons' green. */
    std::unique_ptr<juce::FocusOutline> createFocusOutlineForComponent (juce::Component&) override;

    /** The tab on show has a mark, as all are of nearly the same white. */
    void drawTabButton (juce::TabBarButton&, juce::Graphics&, bool isMouseOver, bool isMouseDown) override;

    /** With an edge, which shows how long the bar will be, and a text that is seen on both of its parts. */
    void drawProgressBar (juce::Graphics&,
                          juce::ProgressBar&,
                          int width,
                          int height,
                          double progress,
                          const juce::String& text) override;

private:
    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Appearance)
};
