#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

class DeviceList;

/** The event logs as they stand now, in a dialog to be run modally. Message thread. */
class EventDisplayWindow : public juce::DialogWindow
{
public:
    /** Reads every log, which can take a second or more; the devices are not needed afterwards. */
    explicit EventDisplayWindow (const DeviceList& devices);

    /** Ends the modal state with 0. */
    void closeButtonPressed() override;

private:
    bool escapeKeyPressed() override;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventDisplayWindow)
};
