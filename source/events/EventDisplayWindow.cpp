#include "events/EventDisplayWindow.h"

#include "events/EventDisplayWindowContent.h"

EventDisplayWindow::EventDisplayWindow (const DeviceList& devices)
    : DialogWindow ("Event log", juce::Colours::black, true, true)
{
    // In this order the logs are read before anything is on screen, and the content gets its full size.
    auto content = std::make_unique<EventDisplayWindowContent> (devices);
    setUsingNativeTitleBar (true);
    setContentOwned (content.release(), true);
    setCentreRelative (0.5f, 0.5f);
}

void EventDisplayWindow::closeButtonPressed()
{
    exitModalState (0);
}

/** With a native title bar the toolkit would only hide the window. */
bool EventDisplayWindow::escapeKeyPressed()
{
    closeButtonPressed();
    return true;
}
