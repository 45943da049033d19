#pragma once

#include <cstddef>
#include <cstdint>

/** Stand-in for the part of the Windows interface that the program uses: same names, types, results and last
    errors, nothing more. Each call's remark says only where it differs from what Windows does.

    Handles are opaque and belong to this process. Every call may be made on any thread; a window's messages
    are fetched on the thread that made it.
*/

//==============================================================================
using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using LONG = std::int32_t;
using LSTATUS = LONG;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using ATOM = WORD;
using REGSAM = DWORD;
using HANDLE = void*;

using HKEY = struct HKEY__*;
using HWND = struct HWND__*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HICON = struct HICON__*;
using HCURSOR = HICON;
using HBRUSH = struct HBRUSH__*;
using HMENU = struct HMENU__*;
using HDEVINFO = void*;
using HDEVNOTIFY = void*;

struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

union LARGE_INTEGER
{
    std::int64_t QuadPart;
};

#define CALLBACK
#define FALSE 0
#define TRUE  1

//==============================================================================
// Last errors. A call that succeeds leaves the last error as it was.

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_SEM_TIMEOUT = 121;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

DWORD GetLastError();
void SetLastError (DWORD error);

//==============================================================================
// Device I/O: a handle is a connection to the interface's driver.

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE> (static_cast<LONG_PTR> (-1)))

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD OPEN_EXISTING = 3;

struct SECURITY_ATTRIBUTES;
struct OVERLAPPED;

/** Opens device-interface paths only. */
HANDLE CreateFileA (const char* path,
                    DWORD access,
                    DWORD share,
                    SECURITY_ATTRIBUTES* security,
                    DWORD disposition,
                    DWORD flags,
                    HANDLE templateFile);

/** Closes what CreateFileA opened; the sections that its replies mapped go with it. While its driver owes an answer the
    connection itself waits for the interface's next handle.
*/
BOOL CloseHandle (HANDLE handle);

/** A driver that does not answer within the process's patience (Patience.h) fails the call with ERROR_SEM_TIMEOUT.
   Until it has answered that request, further ones on the handle fail at once and are not sent; afterwards all goes on
   as before. MapStatistics does not fail so: it hands out the address at which the block can be read later.
*/
BOOL DeviceIoControl (HANDLE handle,
                      DWORD controlCode,
                      void* input,
                      DWORD inputSize,
                      void* output,
                      DWORD outputSize,
                      DWORD* bytesReturned,
                      OVERLAPPED* overlapped);

//==============================================================================
// SetupAPI. There is one device-interface class, and any class id names it.

inline constexpr DWORD DIGCF_PRESENT = 0x02;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;

struct SP_DEVICE_INTERFACE_DATA
{
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};

struct SP_DEVICE_INTERFACE_DETAIL_DATA_A
{
    DWORD cbSize;
    char DevicePath[1];
};

struct SP_DEVINFO_DATA
{
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};

HDEVINFO SetupDiGetClassDevsA (const GUID* classGuid, const char* enumerator, HWND parent, DWORD flags);
BOOL SetupDiDestroyDeviceInfoList (HDEVINFO set);

BOOL SetupDiEnumDeviceInterfaces (HDEVINFO set,
                                  SP_DEVINFO_DATA* device,
                                  const GUID* interfaceClass,
                                  DWORD index,
                                  SP_DEVICE_INTERFACE_DATA* interfaceData);

BOOL SetupDiGetDeviceInterfaceDetailA (HDEVINFO set,
                                       SP_DEVICE_INTERFACE_DATA* interfaceData,
                                       SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail,
                                       DWORD detailSize,
                                       DWORD* requiredSize,
                                       SP_DEVINFO_DATA* device);

/** Fails with INVALID_HANDLE_VALUE cast to a key. */
HKEY SetupDiOpenDeviceInterfaceRegKey (HDEVINFO set,
                                       SP_DEVICE_INTERFACE_DATA* interfaceData,
                                       DWORD reserved,
                                       REGSAM access);

BOOL SetupDiEnumDeviceInfo (HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device);

BOOL SetupDiGetDeviceInstanceIdA (HDEVINFO set, SP_DEVINFO_DATA* device, char* id, DWORD size, DWORD* requiredSize);

//==============================================================================
// Registry keys of device interfaces.

inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr DWORD REG_BINARY = 3;

/** The machine folder knows no value types: every value is REG_BINARY. */
LSTATUS RegQueryValueExA (HKEY key, const char* valueName, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);
LSTATUS RegCloseKey (HKEY key);

//==============================================================================
// Windows that are never seen, and their messages.

using WNDPROC = LRESULT (*) (HWND, UINT, WPARAM, LPARAM);

inline constexpr UINT CS_VREDRAW = 1;
inline constexpr UINT CS_HREDRAW = 2;
inline constexpr LONG_PTR COLOR_WINDOW = 5;
inline constexpr int GWLP_USERDATA = -21;
inline constexpr UINT WM_DESTROY = 0x02;
inline constexpr UINT WM_CLOSE = 0x10;
inline constexpr UINT WM_DEVICECHANGE = 0x219;
inline constexpr UINT WM_APP = 0x8000;

#define HWND_MESSAGE (reinterpret_cast<HWND> (static_cast<LONG_PTR> (-3)))

struct WNDCLASSEXA
{
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    const char* lpszMenuName;
    const char* lpszClassName;
    HICON hIconSm;
};

struct MSG
{
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

HMODULE GetModuleHandleA (const char* moduleName);
ATOM RegisterClassExA (const WNDCLASSEXA* windowClass);

HWND CreateWindowExA (DWORD extendedStyle,
                      const char* className,
                      const char* windowName,
                      DWORD style,
                      int x,
                      int y,
                      int width,
                      int height,
                      HWND parent,
                      HMENU menu,
                      HINSTANCE instance,
                      void* parameter);

BOOL DestroyWindow (HWND window);
LONG_PTR SetWindowLongPtrA (HWND window, int index, LONG_PTR value);
LONG_PTR GetWindowLongPtrA (HWND window, int index);
LRESULT DefWindowProcA (HWND window, UINT message, WPARAM wParam, LPARAM lParam);

/** Device notifications are delivered from in here, as sent messages are. */
BOOL GetMessageA (MSG* message, HWND window, UINT firstMessage, UINT lastMessage);
BOOL TranslateMessage (const MSG* message);
LRESULT DispatchMessageA (const MSG* message);
BOOL PostMessageA (HWND window, UINT message, WPARAM wParam, LPARAM lParam);

void Sleep (DWORD milliseconds);

//==============================================================================
// Device notifications: the machine folder's interfaces that appear and vanish.

inline constexpr DWORD DBT_DEVTYP_DEVICEINTERFACE = 5;
inline constexpr DWORD DBT_DEVTYP_HANDLE = 6;
inline constexpr DWORD DEVICE_NOTIFY_WINDOW_HANDLE = 0;
inline constexpr WPARAM DBT_DEVICEARRIVAL = 0x8000;
inline constexpr WPARAM DBT_DEVICEQUERYREMOVE = 0x8001;
inline constexpr WPARAM DBT_DEVICEQUERYREMOVEFAILED = 0x8002;
inline constexpr WPARAM DBT_DEVICEREMOVEPENDING = 0x8003;
inline constexpr WPARAM DBT_DEVICEREMOVECOMPLETE = 0x8004;

struct DEV_BROADCAST_HDR
{
    DWORD dbch_size;
    DWORD dbch_devicetype;
    DWORD dbch_reserved;
};

struct DEV_BROADCAST_DEVICEINTERFACE_A
{
    DWORD dbcc_size;
    DWORD dbcc_devicetype;
    DWORD dbcc_reserved;
    GUID dbcc_classguid;
    char dbcc_name[1];
};

static_assert (offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name) == 28);
static_assert (sizeof (DEV_BROADCAST_DEVICEINTERFACE_A) == 32);

struct DEV_BROADCAST_HANDLE
{
    DWORD dbch_size;
    DWORD dbch_devicetype;
    DWORD dbch_reserved;
    HANDLE dbch_handle;
    HDEVNOTIFY dbch_hdevnotify;
    GUID dbch_eventguid;
    LONG dbch_nameoffset;
    BYTE dbch_data[1];
};

/** Of open handles (DBT_DEVTYP_HANDLE) nothing is heard but what HandleNotification.h sends. */

HDEVNOTIFY RegisterDeviceNotificationA (HANDLE window, void* filter, DWORD flags);
BOOL UnregisterDeviceNotification (HDEVNOTIFY registration);

//==============================================================================
/** 10,000,000: the counter is CLOCK_MONOTONIC in units of 100 ns. */
BOOL QueryPerformanceFrequency (LARGE_INTEGER* frequency);
