#include "platform/DriverCalls.h"

#include <memory>
#include <utility>

/* The stand-in's own calls keep to these rules. */
namespace DriverCalls
{

namespace
{
struct OpenInterface
{
    HANDLE file;
    HDEVNOTIFY registration;
};

OpenInterface* interfaceOf (HANDLE handle)
{
    return handle != INVALID_HANDLE_VALUE ? static_cast<OpenInterface*> (handle) : nullptr;
}
} // namespace

HANDLE open (const char* path, HWND window)
{
    const auto file = CreateFileA (path,
                                   GENERIC_READ | GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr,
                                   OPEN_EXISTING,
                                   0,
                                   nullptr);

    if (file == INVALID_HANDLE_VALUE)
        return file;

    DEV_BROADCAST_HANDLE filter {};
    filter.dbch_size = sizeof (filter);
    filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
    filter.dbch_handle = file;
    return new OpenInterface { file, RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE) };
}

bool request (HANDLE handle, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize)
{
    const auto* opened = interfaceOf (handle);
    const auto file = opened != nullptr ? opened->file : INVALID_HANDLE_VALUE;
    DWORD returned = 0;
    auto* bytes = const_cast<void*> (input);
    return DeviceIoControl (file, controlCode, bytes, inputSize, output, outputSize, &returned, nullptr) != FALSE;
}

bool isAbout (const DEV_BROADCAST_HANDLE& notification, HANDLE handle)
{
    const auto* opened = interfaceOf (handle);
    return opened != nullptr && opened->registration != nullptr && opened->registration == notification.dbch_hdevnotify;
}

void closeFile (HANDLE handle)
{
    if (auto* opened = interfaceOf (handle))
        CloseHandle (std::exchange (opened->file, INVALID_HANDLE_VALUE));
}

void close (HANDLE handle)
{
    closeFile (handle);

    if (const std::unique_ptr<OpenInterface> opened (interfaceOf (handle)); opened != nullptr)
        UnregisterDeviceNotification (opened->registration);
}

} // namespace DriverCalls
