#include "app/AppWindow.h"

#include "platform/UserSettings.h"
#include "stats/Content.h"

/** Where the window's position is kept, as decimal text. */
static const juce::String RegistryPath ("HKEY_CURRENT_USER\\Software\\Vendrel");

static int readCoordinate (const juce::String& name, int defaultValue)
{
    return UserSettings::getValue (RegistryPath, name, juce::String (defaultValue)).getIntValue();
}

AppWindow::AppWindow (DeviceList& devices, int defaultX, int defaultY)
    : DocumentWindow ("Quendel", juce::Colour (15, 15, 15), minimiseButton | closeButton, true)
{
    setTitleBarTextCentred (false);
    setOpaque (true);
    setUsingNativeTitleBar (true);

    // The view takes the keyboard itself; a window that wants it would keep Escape and Return from it.
    setWantsKeyboardFocus (false);
    setContentOwned (new Content (devices), true);

    restoredPosition = { readCoordinate ("x", defaultX), readCoordinate ("y", defaultY) };
    setTopLeftPosition (restoredPosition);

    // A window manager that frames the window some time later shifts it by the frame, and the toolkit then takes
    // the shifted place for ours. By now the frame is known and the place means the same to everybody.
    constexpr int frameDelayMs = 300;
    juce::Timer::callAfterDelay (frameDelayMs,
                                 [safe = juce::Component::SafePointer<AppWindow> (this)]
                                 {
                                     if (safe != nullptr)
                                         safe->settle();
                                 });
}

AppWindow::~AppWindow()
{
    const auto position = settled ? getPosition() : restoredPosition;
    UserSettings::setValue (RegistryPath, "x", juce::String (position.x));
    UserSettings::setValue (RegistryPath, "y", juce::String (position.y));
}

void AppWindow::settle()
{
    setTopLeftPosition (restoredPosition);
    settled = true;
}

void AppWindow::closeButtonPressed()
{
    juce::JUCEApplication::quit();
}
