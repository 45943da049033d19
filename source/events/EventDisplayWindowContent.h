#pragma once

#include "events/EventTabs.h"

/** What the event window holds: the tabs, and the button that saves the one on show. Message thread. */
class EventDisplayWindowContent : public juce::Component, private juce::Button::Listener, private juce::KeyListener
{
public:
    explicit EventDisplayWindowContent (const DeviceList& devices);

    void paint (juce::Graphics&) override;
    void resized() override;

private:
    /** Ctrl with Page Down or Tab goes to the next tab, with Page Up or Shift and Tab to the one before; 1 to 6 sort by
        the column of that number; Ctrl and C copies the selected row; Space presses the button. Heard before the
        table, which takes Page Up and Down whatever the modifiers are.
    */
    bool keyPressed (const juce::KeyPress&, juce::Component* whereFocusIs) override;
    using juce::Component::keyPressed;
    void buttonClicked (juce::Button*) override;

    /** The tables have no tips of their own. */
    struct Tips : public juce::TooltipWindow
    {
        using TooltipWindow::TooltipWindow;
        juce::String getTipFor (juce::Component&) override;
    };

    EventTabs tabs;
    juce::TextButton saveButton { "Save report" };
    Tips tips { this, 700 };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventDisplayWindowContent)
};
