#include "device/Win32NotificationWindow.h"

#include "platform/NotificationWindow.h"

Win32NotificationWindow* Win32NotificationWindow::instance = nullptr;

Win32NotificationWindow& Win32NotificationWindow::getInstance()
{
    if (instance == nullptr)
        instance = new Win32NotificationWindow();

    return *instance;
}

Win32NotificationWindow::Win32NotificationWindow() : Thread ("win32 notification thread")
{
    startThread();
}

Win32NotificationWindow::~Win32NotificationWindow()
{
    constexpr int allowanceMs = 2000;

    if (const auto handle = waitForWindow(); handle != nullptr)
        NotificationWindow::close (handle);

    stopThread (allowanceMs);
    instance = nullptr;
}

//==============================================================================
HWND Win32NotificationWindow::waitForWindow() const
{
    constexpr int pollIntervalMs = 10;

    while (isThreadRunning() && window.load() == nullptr)
        sleep (pollIntervalMs);

    return window.load();
}

HWND Win32NotificationWindow::getWindowHandle()
{
    return getInstance().waitForWindow();
}

HWND Win32NotificationWindow::findWindowHandle()
{
    return instance != nullptr ? instance->window.load() : nullptr;
}

void Win32NotificationWindow::addListener (Win32MessageListener* listener)
{
    auto& self = getInstance();
    const juce::ScopedLock locked (self.listenerLock);
    self.listeners.addIfNotAlreadyThere (listener);
}

void Win32NotificationWindow::removeListener (Win32MessageListener* listener)
{
    if (instance == nullptr)
        return;

    const juce::ScopedLock locked (instance->listenerLock);
    instance->listeners.removeFirstMatchingValue (listener);
}

//==============================================================================
void Win32NotificationWindow::run()
{
    NotificationWindow::run (window,
                             [this] (UINT message, WPARAM wParam, LPARAM lParam)
                             {
                                 const juce::ScopedLock locked (listenerLock);

                                 for (auto* listener : listeners)
                                     listener->handleWin32Message (message, wParam, lParam);
                             });
}
