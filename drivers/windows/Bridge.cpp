#include "drivers/windows/Bridge.h"

#include "protocol/DriverProtocol.h"
#include "protocol/ProgramNames.h"

#include <windows.h>

#include <dbt.h>

#include <cstddef>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace Bridge
{

namespace
{
constexpr char ownWindowClass[] = "Quendel test bridge";
constexpr auto nameOffset = offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);

/** The 8-bit form of the path when the notification came with a 16-bit one, else nothing. */
std::string convertWidePath (const DEV_BROADCAST_DEVICEINTERFACE_W& event)
{
    const auto* bytes = reinterpret_cast<const char*> (&event) + nameOffset;

    // A path begins with two ASCII characters.
    if (event.dbcc_size < nameOffset + 2 * sizeof (wchar_t) || bytes[0] == 0 || bytes[1] != 0)
        return {};

    const auto room = (event.dbcc_size - nameOffset) / sizeof (wchar_t);
    std::wstring wide (room, 0);
    std::memcpy (wide.data(), bytes, room * sizeof (wchar_t));

    std::string path (4 * room, 0);
    const auto length = WideCharToMultiByte (CP_ACP,
                                             0,
                                             wide.c_str(),
                                             -1,
                                             path.data(),
                                             static_cast<int> (path.size()),
                                             nullptr,
                                             nullptr);
    path.resize (length > 0 ? static_cast<std::size_t> (length) - 1 : 0);
    return path;
}

LRESULT CALLBACK windowProcedure (HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_DEVICECHANGE && lParam != 0)
    {
        const auto& event = *reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*> (lParam);

        if (event.dbcc_devicetype == DBT_DEVTYP_DEVICEINTERFACE)
            if (const auto path = convertWidePath (event); ! path.empty())
                notifyProgram (static_cast<unsigned long> (wParam), path.c_str());
    }

    return DefWindowProcA (window, message, wParam, lParam);
}

bool registerWindow()
{
    WNDCLASSEXA windowClass {};
    windowClass.cbSize = sizeof (windowClass);
    windowClass.lpfnWndProc = windowProcedure;
    windowClass.hInstance = GetModuleHandleA (nullptr);
    windowClass.lpszClassName = ownWindowClass;
    RegisterClassExA (&windowClass);

    const auto window = CreateWindowExA (0,
                                         ownWindowClass,
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

    DEV_BROADCAST_DEVICEINTERFACE_A filter {};
    filter.dbcc_size = sizeof (filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = DriverProtocol::makeInterfaceClass<GUID>();

    return window != nullptr && RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE) != nullptr;
}
} // namespace

bool start()
{
    std::promise<bool> registered;
    auto result = registered.get_future();

    std::thread (
        [&registered]
        {
            registered.set_value (registerWindow());

            for (MSG message {}; GetMessageA (&message, nullptr, 0, 0) > 0;)
                DispatchMessageA (&message);
        })
        .detach();

    return result.get();
}

bool notifyProgram (unsigned long event, const char* path)
{
    constexpr UINT timeoutMs = 10'000;

    const auto window = FindWindowExA (HWND_MESSAGE, nullptr, ProgramNames::notificationWindow, nullptr);

    if (window == nullptr)
        return false;

    const auto size = nameOffset + std::strlen (path) + 1;
    std::vector<DEV_BROADCAST_DEVICEINTERFACE_A> storage (size / sizeof (DEV_BROADCAST_DEVICEINTERFACE_A) + 1);
    auto& header = storage.front();
    header.dbcc_size = static_cast<DWORD> (size);
    header.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    header.dbcc_classguid = DriverProtocol::makeInterfaceClass<GUID>();
    std::memcpy (reinterpret_cast<char*> (&header) + nameOffset, path, std::strlen (path) + 1);

    const auto data = reinterpret_cast<LPARAM> (&header);
    return SendMessageTimeoutA (window, WM_DEVICECHANGE, event, data, SMTO_NORMAL, timeoutMs, nullptr) != 0;
}

} // namespace Bridge
