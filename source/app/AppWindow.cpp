#include "app/AppWindow.h"

#include "platform/UserSettings.h"
#include "platform/WindowIcon.h"
#include "protocol/ProgramNames.h"
#include "stats/Content.h"
#include "text/InterfaceColours.h"

/** Where the window's position is kept, as decimal text. */
static const juce::String RegistryPath ("HKEY_CURRENT_USER\\" + juce::String (ProgramNames::settingsKey));

static int readCoordinate (const juce::String& name, int defaultValue)
{
    // No display is nearly as large, and the window's far edges must still be numbers.
    constexpr int limit = 1000000;
    const auto text = UserSettings::getValue (RegistryPath, name, juce::String (defaultValue));
    return juce::jlimit (-limit, limit, text.getIntValue());
}

/** What all sizes are multiplied by so that a window of that height stands on the display with its frame, also where
    a window stands at first. The width has no part in it: a window that is too wide can be moved, and its buttons have
    keys, whereas many columns made to fit could not be read.
*/
static float findScale (const juce::Rectangle<int>& workArea, int height)
{
    constexpr int titleBarHeight = 32, borderHeight = 8;
    constexpr float smallest = 0.5f;
    const int above = juce::jmax (titleBarHeight, workArea.getHeight() / 20);
    const int room = workArea.getHeight() - above - borderHeight;
    return juce::jlimit (smallest, 1.0f, static_cast<float> (room) / static_cast<float> (height));
}

AppWindow::AppWindow (DeviceList* devices, int defaultX, int defaultY)
    : DocumentWindow ("Quendel", InterfaceColours::ground, minimiseButton | closeButton, false)
{
    setTitleBarTextCentred (false);
    setOpaque (true);
    setUsingNativeTitleBar (true);

    // The view takes the keyboard itself; a window that took it would keep Escape and Return from it.
    setWantsKeyboardFocus (false);
    setContentOwned (new Content (*devices), true);

    const juce::Point<int> storedPosition { readCoordinate ("x", defaultX), readCoordinate ("y", defaultY) };
    auto& desktop = juce::Desktop::getInstance();

    if (const auto* display = desktop.getDisplays().getDisplayForPoint (storedPosition))
        desktop.setGlobalScaleFactor (findScale (display->userArea, getHeight()));

    const auto position = (storedPosition.toFloat() / desktop.getGlobalScaleFactor()).roundToInt();
    setTopLeftPosition (position);

    // Only now: with a native title bar the toolkit shows a window at once, in whatever size and place it has.
    addToDesktop();
    WindowIcon::apply (*this);
    placement = std::make_unique<WindowPlacement> (*this, [position] (const auto&) { return position; });
}

AppWindow::~AppWindow()
{
    const auto position = placement->getPosition().toFloat() * juce::Desktop::getInstance().getGlobalScaleFactor();
    UserSettings::setValue (RegistryPath, "x", juce::String (juce::roundToInt (position.x)));
    UserSettings::setValue (RegistryPath, "y", juce::String (juce::roundToInt (position.y)));
}

void AppWindow::closeButtonPressed()
{
    juce::JUCEApplication::quit();
}

void AppWindow::userTriedToCloseWindow()
{
    if (isCurrentlyBlockedByAnotherModalComponent())
        getCurrentlyModalComponent()->inputAttemptWhenModal();
    else
        closeButtonPressed();
}
