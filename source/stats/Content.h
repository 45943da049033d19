#pragma once

#include "device/DeviceList.h"
#include "stats/ColumnNotes.h"
#include <functional>
#include <vector>

/** The main view: stream status of the newest device, one labelled row per statistic, one Column per device, and
    the three buttons.

    It polls the devices four times a second, follows arrivals and removals, sizes itself to the number of devices,
    copies what "Save" would append on Ctrl and C, and ends the application on Escape or when the last device has gone.
    Message thread.
*/
class Content : public juce::Component, public juce::Timer, private juce::Button::Listener, public juce::MessageListener
{
public:
    /** Becomes the list's listener.
        @param devices   not owned, outlives the view; holds at least one device
    */
    explicit Content (DeviceList& devices);
    ~Content() override;

    /** Replaces the columns by one per device, and closes and opens each device again. */
    void rebuildColumns();

    /** Fits the width to the number of columns. */
    void updateWidth();

    /** Reads the firmware's counters of every device into its column. */
    void refreshFirmwareCounters() { refreshFirmwareCounters (deviceList.getDevices()); }

    /** The report on all that the view shows, as a save at that time appends it: the texts of the last tick. */
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
    /** Return and Space press a button that Tab has reached. A click gives the keyboard focus back to the view, whose
        Return is.
    */
    struct ViewButton : public juce::TextButton
    {
        using TextButton::TextButton;
        bool keyPressed (const juce::KeyPress&) override;
        bool keyStateChanged (bool isKeyDown) override;
        void mouseDown (const juce::MouseEvent&) override;
    };

    using Devices = std::vector<HwDevice::Ptr>;

    /** A column, and enough to find its device again, whatever happened to the list meanwhile. */
    struct ShownDevice
    {
        /** Null when the device has gone. It is nearly always at the column's position. */
        HwDevice* findIn (const Devices&, std::size_t likelyPosition) const;

        std::unique_ptr<Column> column;
        std::unique_ptr<ColumnNotes> notes;
        juce::String path;
        HwInfoCaps caps;
    };

    /** Runs for a moment after each change that was followed. The toolkit delivers all messages before it looks at keys
        and clicks: were every message of a storm of changes followed on the spot, a user could not even quit.
    */
    struct ChangeThrottle : public juce::Timer
    {
        explicit ChangeThrottle (Content& owner) : content (owner) {}
        void timerCallback() override;
        Content& content;
        bool isChangeWaiting = false;
    };

    void buttonClicked (juce::Button*) override;
    void followDevices();
    void refreshFirmwareCounters (const Devices&);
    void openEventWindow();
    void runModally (const std::function<void()>& modalCall);
    void resetStatistics();
    void showStreamStatus (HwDevice& newest);
    void updateBufferTimeLabel();
    void addStatusLabel (juce::Label&, const juce::String& text);
    void addRowLabels();
    void addButton (ViewButton&, int x, int y);
    int getFullWidth() const;

    DeviceList& deviceList;
    juce::Label sampleRateLabel { "samplerate" };
    juce::Label bufferSizeLabel { "buffsize" };
    juce::Label bufferTimeLabel { "bufftime" };
    juce::OwnedArray<juce::Label> rowLabels;
    juce::CriticalSection columnLock;
    std::vector<ShownDevice> columns; // in the list's order as of the last rebuild
    ViewButton saveButton { "Save" };
    ViewButton resetButton { "Reset" };
    ViewButton eventsButton { "Events" };
    ChangeThrottle changeThrottle { *this };
    juce::TooltipWindow tooltips { this, 700 };
    std::uint32_t sampleRate = 0; // Hz, as shown
    std::uint32_t bufferSize = 0; // sample frames, as shown

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Content)
};
