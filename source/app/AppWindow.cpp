#include "app/AppWindow.h"

#include "platform/UserSettings.h"
#include "platform/WindowIcon.h"
#include "stats/Content.h"

/** Where the window's position is kept, as decimal text. */
static const juce::String RegistryPath ("HKEY_CURRENT_USER\\Software\\Vendrel");

static int readCoordinate (const juce::String& name, int defaultValue)
{
    // No display is nearly as large, and the window's far edges must still be numbers.
    constexpr int limit = 1000000;
    const auto text = UserSettings::getValue (RegistryPath, name, juce::String (defaultValue));
    return juce::jlimit (-limit, limit, text.getIntValue());
}

AppWindow::AppWindow (DeviceList& devices, int defaultX, int defaultY)
    : DocumentWindow ("Quendel", juce::Colour (15, 15, 15), minimiseButton | closeButton, false)
{
    setTitleBarTextCentred (false);
    setOpaque (true);
    setUsingNativeTitleBar (true);

    // The view takes the keyboard itself; a window that wants it would keep Escape and Return from it.
    setWantsKeyboardFocus (false);
    setContentOwned (new Content (devices), true);

    restoredPosition = { readCoordinate ("x", defaultX), readCoordinate ("y", defaultY) };
    setTopLeftPosition (restoredPosition);

    // Only now: with a native title bar the toolkit shows a window at once, in whatever size and place it has.
    addToDesktop();
    WindowIcon::apply (*this);

    constexpr int settleIntervalMs = 20;
    startTimer (settleIntervalMs);
}

AppWindow::~AppWindow()
{
    const auto position = settled ? getPosition() : restoredPosition;
    UserSettings::setValue (RegistryPath, "x", juce::String (position.x));
    UserSettings::setValue (RegistryPath, "y", juce::String (position.y));
}

/** A window manager frames the window some time after it was shown, which shifts it by the frame's border, now and
    then unnoticed by the toolkit. Once the frame is there the window is put back where it belongs, for a while, and
    by way of the place beside it: a move to where the toolkit believes the window to be would not be asked for.
*/
void AppWindow::timerCallback()
{
    constexpr int framelessTicks = 15, longestWaitTicks = 250, restoringTicks = 15, ticksPerDetour = 5;

    const auto* peer = getPeer();
    ++ticksShown;

    if (peer == nullptr || ! peer->getFrameSizeIfPresent())
    {
        settled = settled || ticksShown >= framelessTicks;

        if (ticksShown >= longestWaitTicks)
            stopTimer();

        return;
    }

    if (ticksFramed++ % ticksPerDetour == 0)
        setTopLeftPosition (restoredPosition.translated (1, 0));

    setTopLeftPosition (restoredPosition);

    if (ticksFramed >= restoringTicks)
    {
        settled = true;
        stopTimer();
    }
}

void AppWindow::closeButtonPressed()
{
    juce::JUCEApplication::quit();
}
