#include "platform/NotificationWindow.h"

#include "protocol/ProgramNames.h"

namespace NotificationWindow
{

static LRESULT CALLBACK windowProcedure (HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (const auto* receiver = reinterpret_cast<const Receiver*> (GetWindowLongPtrA (handle, GWLP_USERDATA)))
        (*receiver) (message, wParam, lParam);

    return DefWindowProcA (handle, message, wParam, lParam);
}

void run (std::atomic<HWND>& window, const Receiver& receiver)
{
    WNDCLASSEXA windowClass {};
    windowClass.cbSize = sizeof (windowClass);
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.hInstance = GetModuleHandleA (nullptr);
    windowClass.hbrBackground = reinterpret_cast<HBRUSH> (static_cast<LONG_PTR> (COLOR_WINDOW + 1));
    windowClass.lpszClassName = ProgramNames::notificationWindow;
    RegisterClassExA (&windowClass);

    auto* const handle = CreateWindowExA (0,
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

    SetWindowLongPtrA (handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR> (&receiver));
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

/** The default processing of WM_CLOSE destroys the window, which ends the message loop. */
void close (HWND window)
{
    PostMessageA (window, WM_CLOSE, 0, 0);
}

HDEVNOTIFY registerInterfaces (HWND window, const GUID& interfaceClass)
{
    DEV_BROADCAST_DEVICEINTERFACE_A filter {};
    filter.dbcc_size = sizeof (filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = interfaceClass;
    auto* const registration = RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);

    if (registration != nullptr)
        PostMessageA (window, changesMissed, 0, 0);

    return registration;
}

void unregisterInterfaces (HDEVNOTIFY registration)
{
    UnregisterDeviceNotification (registration);
}

} // namespace NotificationWindow
