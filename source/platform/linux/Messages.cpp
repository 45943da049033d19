#include "platform/linux/HandleNotification.h"
#include "platform/linux/InterfaceWatcher.h"
#include "platform/linux/MachineFolder.h"
#include "platform/linux/Win32StandIn.h"
#include "posix/FileDescriptor.h"
#include "protocol/MachineLayout.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <vector>

namespace
{

/** A window: a place that messages are sent to. */
struct Window
{
    WNDPROC procedure = nullptr;
    LONG_PTR userData = 0;
    std::deque<MSG> posted;
    std::deque<std::packaged_task<void()>> sent; // calls of the procedure that its thread is to make
    int interfaceRegistrations = 0;
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

struct Registration
{
    HWND window;
    HANDLE file;      // null: the registration is for interfaces
    std::string path; // that the file was opened with
};

/** Everything here is guarded by the one lock; window procedures are called without it. */
struct Windows
{
    std::mutex lock;
    std::map<std::string, WNDPROC> classes;
    std::map<HWND, std::shared_ptr<Window>> living;
    std::map<HDEVNOTIFY, Registration> registrations;
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

std::shared_ptr<Window> findWindow (HWND handle)
{
    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    auto window = windows.find (handle);

    if (window == nullptr)
        SetLastError (ERROR_INVALID_WINDOW_HANDLE);

    return window;
}

/** Sends WM_DEVICECHANGE for one change. */
void notify (HWND handle, WNDPROC procedure, const InterfaceChange& change)
{
    const auto path = MachineLayout::pathPrefix + change.name;
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

/** Hands the watcher's changes to every window that asked for them. */
void distributeChanges()
{
    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);

    for (const auto& change : InterfaceWatcher::get().fetchChanges())
    {
        for (const auto& [handle, window] : windows.living)
        {
            if (window->interfaceRegistrations > 0)
            {
                window->sent.emplace_back ([handle = handle, procedure = window->procedure, change]
                                           { notify (handle, procedure, change); });
                window->wake();
            }
        }
    }
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

        if (! window->sent.empty())
        {
            auto call = std::move (window->sent.front());
            window->sent.pop_front();
            locked.unlock();
            call();
            continue;
        }

        if (! window->posted.empty())
        {
            *message = window->posted.front();
            window->posted.pop_front();
            return TRUE;
        }

        const bool watchesInterfaces = window->interfaceRegistrations > 0;
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

    const auto isFor = [&] (DWORD type, std::size_t size)
    { return wanted != nullptr && wanted->dbch_devicetype == type && wanted->dbch_size >= size; };

    const bool isForInterfaces = isFor (DBT_DEVTYP_DEVICEINTERFACE, sizeof (DEV_BROADCAST_DEVICEINTERFACE_A));

    if ((! isForInterfaces && ! isFor (DBT_DEVTYP_HANDLE, sizeof (DEV_BROADCAST_HANDLE)))
        || flags != DEVICE_NOTIFY_WINDOW_HANDLE)
    {
        SetLastError (ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    const auto window = findWindow (static_cast<HWND> (handle));

    if (window == nullptr)
        return nullptr;

    Registration registration { static_cast<HWND> (handle), nullptr, {} };

    if (isForInterfaces)
    {
        InterfaceWatcher::get().addListener();
    }
    else
    {
        registration.file = static_cast<const DEV_BROADCAST_HANDLE*> (filter)->dbch_handle;
        registration.path = getPathOfHandle (registration.file);
    }

    auto& windows = Windows::get();
    const std::scoped_lock locked (windows.lock);
    window->interfaceRegistrations += isForInterfaces ? 1 : 0;
    window->wake();
    auto* const result = reinterpret_cast<HDEVNOTIFY> (++windows.lastHandle);
    windows.registrations[result] = std::move (registration);
    return result;
}

BOOL UnregisterDeviceNotification (HDEVNOTIFY handle)
{
    auto& windows = Windows::get();
    std::unique_lock locked (windows.lock);
    const auto registration = windows.registrations.extract (handle);

    if (registration.empty())
    {
        SetLastError (ERROR_INVALID_HANDLE);
        return FALSE;
    }

    if (registration.mapped().file != nullptr)
        return TRUE;

    if (const auto window = windows.find (registration.mapped().window); window != nullptr)
    {
        if (--window->interfaceRegistrations == 0)
            window->sent.clear();

        window->wake();
    }

    locked.unlock();
    InterfaceWatcher::get().removeListener();
    return TRUE;
}

int notifyHandlesOf (const std::string& path, WPARAM event)
{
    std::vector<std::future<void>> answers;
    auto& windows = Windows::get();
    std::unique_lock locked (windows.lock);

    for (const auto& [handle, registration] : windows.registrations)
    {
        const auto window = windows.find (registration.window);

        if (registration.path != path || window == nullptr)
            continue;

        DEV_BROADCAST_HANDLE notification {};
        notification.dbch_size = sizeof (notification);
        notification.dbch_devicetype = DBT_DEVTYP_HANDLE;
        notification.dbch_handle = registration.file;
        notification.dbch_hdevnotify = handle;

        auto& call = window->sent.emplace_back (
            [receiver = registration.window, procedure = window->procedure, event, notification]
            { procedure (receiver, WM_DEVICECHANGE, event, reinterpret_cast<LPARAM> (&notification)); });
        answers.push_back (call.get_future());
        window->wake();
    }

    locked.unlock();

    // A window that is gone does not answer; that ends its wait, too.
    for (const auto& answer : answers)
        answer.wait();

    return static_cast<int> (answers.size());
}

//==============================================================================
BOOL QueryPerformanceFrequency (LARGE_INTEGER* frequency)
{
    frequency->QuadPart = MachineLayout::ticksPerSecond;
    return TRUE;
}
