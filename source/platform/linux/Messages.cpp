#include "platform/linux/FileDescriptor.h"
#include "platform/linux/InterfaceWatcher.h"
#include "platform/linux/MachineFolder.h"
#include "platform/linux/Win32StandIn.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>

namespace
{

/** A window: a place that messages are sent to. */
struct Window
{
    WNDPROC procedure = nullptr;
    LONG_PTR userData = 0;
    std::deque<MSG> posted;
    std::deque<InterfaceChange> notifications;
    int registrations = 0;
    FileDescriptor wakeUp { ::eventfd (0, EFD_NONBLOCK | EFD_CLOEXEC) };

    void wake() const
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write (wakeUp.get(), &one, sizeof (one));
    }

    void clearWakeUp() const
    {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto got = ::read (wakeUp.get(), &count, sizeof (count));
    }
};

/** Everything here is guarded by the one lock; window procedures are called without it. */
struct Windows
{
    std::mutex lock;
    std::map<std::string, WNDPROC> classes;
    std::map<HWND, std::shared_ptr<Window>> living;
    LONG_PTR lastHandle = 0x10000;

    static Windows& get()
    {
        static Windows windows;
        return windows;
    }

    /** Call with the lock held. */
    std::shared_ptr<Window> find (HWND handle)
    {
        const auto found = living.find (handle);
        return found != living.end() ? found->second : nullptr;
    }
};

struct Registration
{
    HWND window;
};

std::shared_ptr<Window> findWindow (HWND handle)
{
    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    auto window = windows.find (handle);

    if (window == nullptr)
        SetLastError (ERROR_INVALID_WINDOW_HANDLE);

    return window;
}

/** Hands the watcher's changes to every window that asked for them. */
void distributeChanges()
{
    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    const auto changes = InterfaceWatcher::get().fetchChanges();

    if (changes.empty())
        return;

    for (const auto& [handle, window] : windows.living)
    {
        if (window->registrations > 0)
        {
            window->notifications.insert (window->notifications.end(), changes.begin(), changes.end());
            window->wake();
        }
    }
}

/** Sends WM_DEVICECHANGE for one change. */
void notify (HWND handle, WNDPROC procedure, const InterfaceChange& change)
{
    const auto path = MachineFolder::pathPrefix + change.name;
    const auto size = std::max (sizeof (DEV_BROADCAST_DEVICEINTERFACE_A),
                                offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name) + path.size() + 1);
    const auto storage =
        std::make_unique<DEV_BROADCAST_DEVICEINTERFACE_A[]> (size / sizeof (DEV_BROADCAST_DEVICEINTERFACE_A) + 1);

    auto* event = storage.get();
    event->dbcc_size = static_cast<DWORD> (size);
    event->dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    std::memcpy (reinterpret_cast<char*> (event) + offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name),
                 path.c_str(),
                 path.size() + 1);

    procedure (handle,
               WM_DEVICECHANGE,
               change.arrived ? DBT_DEVICEARRIVAL : DBT_DEVICEREMOVECOMPLETE,
               reinterpret_cast<LPARAM> (event));
}

/** Waits for a message to be posted or the machine folder to change. */
void waitForWork (const Window& window, bool watchesInterfaces)
{
    std::array<pollfd, 2> sources {
        { { window.wakeUp.get(), POLLIN, 0 },
          { watchesInterfaces ? InterfaceWatcher::get().getDescriptor() : -1, POLLIN, 0 } }
    };
    ::poll (sources.data(), sources.size(), -1);
    window.clearWakeUp();

    if ((sources[1].revents & POLLIN) != 0)
        distributeChanges();
}

} // namespace

//==============================================================================
HMODULE GetModuleHandleA (const char*)
{
    return nullptr;
}

ATOM RegisterClassExA (const WNDCLASSEXA* windowClass)
{
    if (windowClass == nullptr || windowClass->cbSize != sizeof (WNDCLASSEXA))
    {
        SetLastError (ERROR_INVALID_PARAMETER);
        return 0;
    }

    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    windows.classes[windowClass->lpszClassName] = windowClass->lpfnWndProc;
    return static_cast<ATOM> (windows.classes.size());
}

HWND CreateWindowExA (DWORD,
                      const char* className,
                      const char*,
                      DWORD,
                      int,
                      int,
                      int,
                      int,
                      HWND,
                      HMENU,
                      HINSTANCE,
                      void*)
{
    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    const auto windowClass = windows.classes.find (className);

    if (windowClass == windows.classes.end())
    {
        SetLastError (ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    auto window = std::make_shared<Window>();
    window->procedure = windowClass->second;

    const auto handle = reinterpret_cast<HWND> (++windows.lastHandle);
    windows.living[handle] = std::move (window);
    return handle;
}

BOOL DestroyWindow (HWND handle)
{
    const auto window = findWindow (handle);

    if (window == nullptr)
        return FALSE;

    window->procedure (handle, WM_DESTROY, 0, 0);

    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    return windows.living.erase (handle) > 0 ? TRUE : FALSE;
}

LONG_PTR SetWindowLongPtrA (HWND handle, int index, LONG_PTR value)
{
    const auto window = findWindow (handle);

    if (window == nullptr || index != GWLP_USERDATA)
        return 0;

    const std::scoped_lock locked (Windows::get().lock);
    return std::exchange (window->userData, value);
}

LONG_PTR GetWindowLongPtrA (HWND handle, int index)
{
    const auto window = findWindow (handle);

    if (window == nullptr || index != GWLP_USERDATA)
        return 0;

    const std::scoped_lock locked (Windows::get().lock);
    return window->userData;
}

LRESULT DefWindowProcA (HWND handle, UINT message, WPARAM, LPARAM)
{
    if (message == WM_CLOSE)
        DestroyWindow (handle);

    // The answer that lets a device change go its way.
    return message == WM_DEVICECHANGE ? TRUE : 0;
}

//==============================================================================
BOOL GetMessageA (MSG* message, HWND handle, UINT, UINT)
{
    for (;;)
    {
        const auto window = findWindow (handle);

        if (window == nullptr)
            return -1;

        std::unique_lock locked (Windows::get().lock);

        if (! window->notifications.empty())
        {
            const auto change = std::move (window->notifications.front());
            window->notifications.pop_front();
            locked.unlock();
            notify (handle, window->procedure, change);
            continue;
        }

        if (! window->posted.empty())
        {
            *message = window->posted.front();
            window->posted.pop_front();
            return TRUE;
        }

        const bool watchesInterfaces = window->registrations > 0;
        locked.unlock();
        waitForWork (*window, watchesInterfaces);
    }
}

BOOL TranslateMessage (const MSG*)
{
    return FALSE;
}

LRESULT DispatchMessageA (const MSG* message)
{
    const auto window = findWindow (message->hwnd);
    return window != nullptr ? window->procedure (message->hwnd, message->message, message->wParam, message->lParam)
                             : 0;
}

BOOL PostMessageA (HWND handle, UINT message, WPARAM wParam, LPARAM lParam)
{
    const auto window = findWindow (handle);

    if (window == nullptr)
        return FALSE;

    const std::scoped_lock locked (Windows::get().lock);
    window->posted.push_back ({ handle, message, wParam, lParam });
    window->wake();
    return TRUE;
}

void Sleep (DWORD milliseconds)
{
    std::this_thread::sleep_for (std::chrono::milliseconds (milliseconds));
}

//==============================================================================
HDEVNOTIFY RegisterDeviceNotificationA (HANDLE handle, void* filter, DWORD flags)
{
    const auto* wanted = static_cast<const DEV_BROADCAST_HDR*> (filter);

    if (wanted == nullptr || wanted->dbch_size < sizeof (DEV_BROADCAST_DEVICEINTERFACE_A)
        || wanted->dbch_devicetype != DBT_DEVTYP_DEVICEINTERFACE || flags != DEVICE_NOTIFY_WINDOW_HANDLE)
    {
        SetLastError (ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    const auto window = findWindow (static_cast<HWND> (handle));

    if (window == nullptr)
        return nullptr;

    InterfaceWatcher::get().addListener();

    const std::scoped_lock locked (Windows::get().lock);
    ++window->registrations;
    window->wake();
    return new Registration { static_cast<HWND> (handle) };
}

BOOL UnregisterDeviceNotification (HDEVNOTIFY handle)
{
    const std::unique_ptr<Registration> registration (static_cast<Registration*> (handle));

    if (registration == nullptr)
    {
        SetLastError (ERROR_INVALID_HANDLE);
        return FALSE;
    }

    if (const auto window = findWindow (registration->window); window != nullptr)
    {
        const std::scoped_lock locked (Windows::get().lock);

        if (--window->registrations == 0)
            window->notifications.clear();

        window->wake();
    }

    InterfaceWatcher::get().removeListener();
    return TRUE;
}

//==============================================================================
BOOL QueryPerformanceFrequency (LARGE_INTEGER* frequency)
{
    frequency->QuadPart = 10000000;
    return TRUE;
}
