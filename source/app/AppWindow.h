#pragma once

#include "events/HelpKey.h"
#include "platform/WindowPlacement.h"

class DeviceList;

/** The main window, which comes back where it was left. Message thread. */
class AppWindow : public juce::DocumentWindow
{
public:
    /** Where a display is too low for the window, all windows are scaled down from now on.

        @param devices             not owned, outlives the window; holds at least one device
        @param defaultX, defaultY  top-left corner in screen pixels where none is stored
    */
    AppWindow (DeviceList* devices, int defaultX, int defaultY);

    /** Stores the position. */
    ~AppWindow() override;

    void closeButtonPressed() override;

    /** Refused while another window is open in front of this one, as a click would be. */
    void userTriedToCloseWindow() override;

private:
    std::unique_ptr<WindowPlacement> placement;
    HelpKey helpKey { *this };

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (AppWindow)
};
