#pragma once

#include "events/EventTabs.h"

/** What the event window holds: the tabs, and the button that saves the one on show. Message thread. */
class EventDisplayWindowContent : public juce::Component, private juce::Button::Listener
{
public:
    explicit EventDisplayWindowContent (const DeviceList& devices);

    void paint (juce::Graphics&) override;
    void resized() override;

    /** Ctrl with Page Down or Tab goes to the next tab, with Page Up or Shift and Tab to the one before. */
    bool keyPressed (const juce::KeyPress&) override;

private:
    void buttonClicked (juce::Button*) override;

    EventTabs tabs;
    juce::TextButton saveButton { "Save report" };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventDisplayWindowContent)
};
