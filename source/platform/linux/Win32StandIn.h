#pragma once

#include "protocol/MachineLayout.h"
#include <cstddef>
#include <cstdint>

/** Stand-in for the part of the Windows interface that the program uses: same names, types, results and last
    errors of registry calls, nothing more. Each call's remark says only where it differs from what Windows does.

    Handles are opaque and belong to this process. Every call may be made on any thread.
*/

//==============================================================================
using BOOL = int;
using BYTE = std::uint8_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using LONG = std::int32_t;
using LSTATUS = LONG;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using REGSAM = DWORD;
using HANDLE = void*;

using HKEY = struct HKEY__*;
using HWND = struct HWND__*;
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

#define FALSE 0
#define TRUE  1

//==============================================================================
// Error codes.

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE> (static_cast<LONG_PTR> (-1)))

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
// What device notifications are made of.

inline constexpr UINT WM_DEVICECHANGE = 0x219;
inline constexpr UINT WM_APP = 0x8000;

inline constexpr DWORD DBT_DEVTYP_DEVICEINTERFACE = 5;
inline constexpr DWORD DBT_DEVTYP_HANDLE = 6;
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

//==============================================================================
/** 10,000,000: the counter is CLOCK_MONOTONIC in units of 100 ns. */
inline BOOL QueryPerformanceFrequency (LARGE_INTEGER* frequency)
{
    frequency->QuadPart = MachineLayout::ticksPerSecond;
    return TRUE;
}
