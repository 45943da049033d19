#include "drivers/windows/Bridge.h"

#include "protocol/DriverProtocol.h"
#include "protocol/ProgramNames.h"

#include <windows.h>

#include <dbt.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace Bridge
{

namespace
{
LRESULT CALLBACK windowProcedure (HWND window, UINT message, WPARAM event, LPARAM data)
{
    const auto* wide = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*> (data);

    // In 8 bits the first two characters, which are alike, would be read as one.
    if (message == WM_DEVICECHANGE && wide != nullptr && wide->dbcc_devicetype == DBT_DEVTYP_DEVICEINTERFACE
        && wide->dbcc_name[0] == L'\\')
    {
        std::string path;

        // The test bus's paths are ASCII.
        for (const auto* character = wide->dbcc_name; *character != 0; ++character)
            path.push_back (static_cast<char> (*character));

        notifyProgram (static_cast<unsigned long> (event), path);
    }

    return DefWindowProcA (window, message, event, data);
}

DEV_BROADCAST_DEVICEINTERFACE_A makeHeader (std::size_t size)
{
    DEV_BROADCAST_DEVICEINTERFACE_A header {};
    header.dbcc_size = static_cast<DWORD> (size);
    header.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    header.dbcc_classguid = DriverProtocol::makeInterfaceClass<GUID>();
    return header;
}
} // namespace

bool start()
{
    const auto window = CreateWindowA ("Static", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    SetWindowLongPtrA (window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR> (windowProcedure));

    auto filter = makeHeader (sizeof (DEV_BROADCAST_DEVICEINTERFACE_A));
    return RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE) != nullptr;
}

bool notifyProgram (unsigned long event, const std::string& path)
{
    constexpr UINT timeoutMs = 10'000;
    constexpr auto nameOffset = offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);

    // The text goes on behind the header.
    const auto size = nameOffset + path.size() + 1;
    const auto header = makeHeader (size);
    std::vector<char> data (sizeof (header) + path.size() + 1);
    std::memcpy (data.data(), &header, sizeof (header));
    std::memcpy (data.data() + nameOffset, path.c_str(), path.size() + 1);

    return SendMessageTimeoutA (FindWindowExA (HWND_MESSAGE, nullptr, ProgramNames::notificationWindow, nullptr),
                                WM_DEVICECHANGE,
                                event,
                                reinterpret_cast<LPARAM> (data.data()),
                                SMTO_NORMAL,
                                timeoutMs,
                                nullptr)
           != 0;
}

} // namespace Bridge
