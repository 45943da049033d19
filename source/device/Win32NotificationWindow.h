#pragma once

#include "device/Win32MessageListener.h"
#include <atomic>
#include <juce_events/juce_events.h>

/** The hidden window that device notifications are sent to (platform/NotificationWindow.h), and its thread.

    One per process, made on first use and deleted by the toolkit with its other shut-down objects, after the
    application's own shut-down. The static operations belong to the message thread where nothing else is said.
*/
class Win32NotificationWindow final : private juce::Thread, private juce::DeletedAtShutdown
{
public:
    static Win32NotificationWindow& getInstance();

    /** Waits until the window exists. @returns null when it could not be made */
    static HWND getWindowHandle();

    /** Null when there is none, or none yet. Message thread or notification thread. */
    static HWND findWindowHandle();

    /** Adding a listener twice adds it once. Not owned. */
    static void addListener (Win32MessageListener* listener);

    /** Once it returns, the listener is not being called and never will be. */
    static void removeListener (Win32MessageListener* listener);

private:
    Win32NotificationWindow();
    ~Win32NotificationWindow() override;

    void run() override;
    HWND waitForWindow() const;

    static Win32NotificationWindow* instance;

    std::atomic<HWND> window { nullptr };
    juce::Array<Win32MessageListener*> listeners;
    juce::CriticalSection listenerLock;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Win32NotificationWindow)
};
