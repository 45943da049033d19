#include "events/EventDisplayWindow.h"

#include "events/EventDisplayWindowContent.h"
#include "platform/WindowIcon.h"

static std::unique_ptr<EventDisplayWindowContent> readLogs (const DeviceList& devices)
{
    juce::MouseCursor::showWaitCursor();
    juce::Desktop::getMousePosition(); // asking the display sends what is still in the queue
    auto content = std::make_unique<EventDisplayWindowContent> (devices);
    juce::MouseCursor::hideWaitCursor();
    return content;
}

EventDisplayWindow::EventDisplayWindow (const DeviceList& devices)
    : DialogWindow ("Event log", juce::Colours::black, true, false)
{
    // In this order the logs are read before anything is on screen, and the content gets its full size.
    auto content = readLogs (devices);
    setUsingNativeTitleBar (true);

    // Its parts take the keyboard themselves; a window that took it would keep keys from them.
    setWantsKeyboardFocus (false);
    setContentOwned (content.release(), true);

    // Only now: a change of the title bar makes a window on the desktop anew, and some toolkits have shown it by then.
    addToDesktop();
    WindowIcon::apply (*this);

    const auto centre = getParentMonitorArea().getCentre();
    placement = std::make_unique<WindowPlacement> (*this,
                                                   [this, centre] (const juce::BorderSize<int>& frame)
                                                   {
                                                       const auto whole = frame.addedTo (getLocalBounds());
                                                       return centre - whole.getCentre();
                                                   });
}

/** Refused, not put off, while another window is open in front of this one. */
void EventDisplayWindow::closeButtonPressed()
{
    if (! isCurrentlyBlockedByAnotherModalComponent())
        exitModalState (0);
}

/** With a native title bar the toolkit would only hide the window. */
bool EventDisplayWindow::escapeKeyPressed()
{
    closeButtonPressed();
    return true;
}
