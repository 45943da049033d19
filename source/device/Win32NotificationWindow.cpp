#include "device/Win32NotificationWindow.h"

#include "protocol/ProgramNames.h"

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

    // The default processing of WM_CLOSE destroys the window, which ends the message loop.
    if (const auto handle = waitForWindow(); handle != nullptr)
        PostMessageA (handle, WM_CLOSE, 0, 0);

    stopThread (allowanceMs);
    instance = nullptr;
}

//==============================================================================
HWND Win32NotificationWindow::waitForWindow() const
{
    constexpr DWORD pollIntervalMs = 10;

    while (isThreadRunning() && window.load() == nullptr)
        Sleep (pollIntervalMs);

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
    WNDCLASSEXA windowClass {};
    windowClass.cbSize = sizeof (windowClass);
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.hInstance = GetModuleHandleA (nullptr);
    windowClass.hbrBackground = reinterpret_cast<HBRUSH> (static_cast<LONG_PTR> (COLOR_WINDOW + 1));
    windowClass.lpszClassName = ProgramNames::notificationWindow;
    RegisterClassExA (&windowClass);

    const auto handle = CreateWindowExA (0,
                                         ProgramNames::notificationWindow,
                                         nullptr,
                                         0,
                                         0,
                                         0,
                                         0,
                                         0,
                                         HWND_MESSAGE,
                                         nullptr,
                                         windowClass.hInstance,
                                         nullptr);

    if (handle == nullptr)
        return;

    SetWindowLongPtrA (handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR> (this));
    window.store (handle);

    MSG message {};

    for (;;)
    {
        const auto result = GetMessageA (&message, handle, 0, 0);

        // -1: the window is gone.
        if (result == 0 || result == -1)
            return;

        TranslateMessage (&message);
        DispatchMessageA (&message);
    }
}

LRESULT CALLBACK Win32NotificationWindow::windowProcedure (HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (auto* owner = reinterpret_cast<Win32NotificationWindow*> (GetWindowLongPtrA (handle, GWLP_USERDATA)))
    {
        const juce::ScopedLock locked (owner->listenerLock);

        for (auto* listener : owner->listeners)
            listener->handleWin32Message (message, wParam, lParam);
    }

    return DefWindowProcA (handle, message, wParam, lParam);
}
