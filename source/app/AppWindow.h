#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

class DeviceList;

/** The main window, which comes back where it was left. Message thread. */
class AppWindow : public juce::DocumentWindow, private juce::Timer
{
public:
    /** @param devices             not owned, outlives the window; holds at least one device
        @param defaultX, defaultY  top-left corner in screen pixels where none is stored
    */
    AppWindow (DeviceList& devices, int defaultX, int defaultY);

    /** Stores the position. */
    ~AppWindow() override;

    void closeButtonPressed() override;
    void userTriedToCloseWindow() override { closeButtonPressed(); }

private:
    void timerCallback() override;

    juce::Point<int> restoredPosition;
    int ticksShown = 0;
    int ticksFramed = 0;
    bool settled = false; // where the window is now is where the user has it

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (AppWindow)
};
