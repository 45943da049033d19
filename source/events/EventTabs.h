#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

class DeviceList;
class EventList;

/** One tab with an event table per device and, from two devices on, "Aggregate" with the events of all. Message
    thread.
*/
class EventTabs : public juce::TabbedComponent
{
public:
    /** Reads all logs; the devices are not needed afterwards. */
    explicit EventTabs (const DeviceList& list);
    ~EventTabs() override;

    /** The table on show; null when there are no tabs. */
    EventList* getCurrentList() const;

    /** Asks for a file and writes the table on show to it. */
    void saveReport();

    void paint (juce::Graphics&) override;

private:
    juce::TabBarButton* createTabButton (const juce::String& name, int index) override;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventTabs)
};
