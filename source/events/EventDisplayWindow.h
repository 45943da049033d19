#pragma once

#include "events/HelpKey.h"
#include "platform/WindowPlacement.h"

class DeviceList;

/** The event logs as they stand now, in a dialog to be run modally. Message thread. */
class EventDisplayWindow : public juce::DialogWindow
{
public:
    /** Reads every log, which can take a second or more; the devices are not needed afterwards. */
    explicit EventDisplayWindow (const DeviceList& devices);

    /** Ends the modal state with 0, unless another window is open in front of this one. */
    void closeButtonPressed() override;

private:
    bool escapeKeyPressed() override;

    std::unique_ptr<WindowPlacement> placement;
    HelpKey helpKey { *this };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventDisplayWindow)
};
