#pragma once

#include "device/HwInfoCaps.h"
#include "stats/Column.h"
#include <functional>
#include <vector>

class DeviceList;
class HwDevice;

/** The main view: stream status of the newest device, one labelled row per statistic, one Column per device, and
    the three buttons.

    It polls the devices four times a second, follows arrivals and removals, sizes itself to the number of devices,
    and ends the application on Escape or when the last device has gone. Message thread.
*/
class Content : public juce::Component,
                private juce::Timer,
                private juce::Button::Listener,
                public juce::MessageListener
{
public:
    /** Becomes the list's listener.
        @param devices   not owned, outlives the view; holds at least one device
    */
    explicit Content (DeviceList& devices);
    ~Content() override;

    /** Deletes the columns and makes one per device, each of which is closed and opened again. */
    void rebuildColumns();

    /** Fits the width to the number of devices. */
    void updateWidth();

    /** Reads the firmware's counters of every device into its column. */
    void refreshFirmwareCounters();

    /** The report on all that the view shows, as a save at that time appends it. The firmware figures of the last
        refreshFirmwareCounters are in it from the next tick on.
    */
    juce::String makeReport (const juce::Time& time) const;

    /** Appends a report on all that the view shows to the report file, and tells the user how that went. */
    void saveStatisticsReport();

    void paint (juce::Graphics&) override;
    void resized() override;
    bool keyPressed (const juce::KeyPress&) override;
    void handleMessage (const juce::Message&) override;

    /** One refresh of everything; the timer calls it every 250 ms. */
    void timerCallback() override;

private:
    /** Return is the view's, so the buttons leave it alone, and a click leaves the keyboard focus where it is. */
    struct ViewButton : public juce::TextButton
    {
        using TextButton::TextButton;
        bool keyPressed (const juce::KeyPress&) override;
    };

    /** What a column shows: enough to find its device again, whatever happened to the list meanwhile. */
    struct ColumnSource
    {
        juce::String path;
        HwInfoCaps caps;
    };

    /** Calls the view back once, a while after a change that it has put off. */
    struct LaterChange : public juce::Timer
    {
        explicit LaterChange (Content& owner) : content (owner) {}
        void timerCallback() override;
        Content& content;
    };

    void buttonClicked (juce::Button*) override;
    void followDevices();
    void openEventWindow();
    void forEachColumn (const std::function<void (Column&, HwDevice&)>& action);
    void runModally (const std::function<void()>& modalCall);
    void resetStatistics();
    void showStreamStatus();
    void updateBufferTimeLabel();
    void addStatusLabel (juce::Label&, const juce::String& text);
    void addRowLabels();
    void addButton (ViewButton&, int x, int y);
    int getColumnsLeft() const;
    int getFullWidth (int numColumns) const;

    DeviceList& deviceList;
    juce::Label sampleRateLabel { "samplerate" };
    juce::Label bufferSizeLabel { "buffsize" };
    juce::Label bufferTimeLabel { "bufftime" };
    juce::OwnedArray<juce::Label> rowLabels;
    juce::OwnedArray<Column, juce::CriticalSection> columns; // in the list's order as of the last rebuild
    std::vector<ColumnSource> sources;                       // of each column
    ViewButton saveButton { "Save" };
    ViewButton resetButton { "Reset" };
    ViewButton eventsButton { "Events" };
    LaterChange laterChange { *this };
    juce::uint32 followedAt = 0; // ms, as juce::Time::getMillisecondCounter counts
    juce::TooltipWindow tooltips { this, 700 };
    std::uint32_t sampleRate = 0; // Hz, as shown
    std::uint32_t bufferSize = 0; // sample frames, as shown

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Content)
};
