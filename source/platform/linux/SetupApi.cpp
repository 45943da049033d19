#include "platform/linux/MachineFolder.h"
#include "platform/linux/Win32StandIn.h"
#include "protocol/MachineLayout.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace
{

/** What a device-information set holds: the paths of device interfaces, or the instance ids of devices. */
struct DeviceSet
{
    std::vector<std::string> entries;
};

struct RegistryKey
{
    FileDescriptor folder;
};

/** The entry that a structure filled by an enumeration stands for; null when it stands for none. */
template <typename Data>
const std::string* findEntry (HDEVINFO set, const Data* data) noexcept
{
    if (set == nullptr || set == INVALID_HANDLE_VALUE || data == nullptr || data->cbSize != sizeof (Data))
        return nullptr;

    const auto& entries = static_cast<DeviceSet*> (set)->entries;
    return data->Reserved < entries.size() ? &entries[data->Reserved] : nullptr;
}

/** One step of an enumeration. */
template <typename Data>
BOOL enumerate (HDEVINFO set, DWORD index, Data* data) noexcept
{
    if (set == nullptr || set == INVALID_HANDLE_VALUE || data == nullptr || data->cbSize != sizeof (Data)
        || index >= static_cast<DeviceSet*> (set)->entries.size())
        return FALSE;

    data->Reserved = index;
    return TRUE;
}

} // namespace

//==============================================================================
HDEVINFO SetupDiGetClassDevsA (const GUID*, const char*, HWND, DWORD flags)
{
    auto* set = new DeviceSet;

    if ((flags & DIGCF_DEVICEINTERFACE) == 0)
    {
        set->entries = MachineFolder::listControllers();
        return set;
    }

    for (const auto& name : MachineFolder::listInterfaces())
        set->entries.push_back (MachineLayout::pathPrefix + name);

    return set;
}

BOOL SetupDiDestroyDeviceInfoList (HDEVINFO set)
{
    if (set == nullptr || set == INVALID_HANDLE_VALUE)
        return FALSE;

    delete static_cast<DeviceSet*> (set);
    return TRUE;
}

BOOL SetupDiEnumDeviceInterfaces (HDEVINFO set,
                                  SP_DEVINFO_DATA*,
                                  const GUID* interfaceClass,
                                  DWORD index,
                                  SP_DEVICE_INTERFACE_DATA* interfaceData)
{
    if (enumerate (set, index, interfaceData) == FALSE)
        return FALSE;

    interfaceData->InterfaceClassGuid = *interfaceClass;
    interfaceData->Flags = 1;
    return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailA (HDEVINFO set,
                                       SP_DEVICE_INTERFACE_DATA* interfaceData,
                                       SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail,
                                       DWORD detailSize,
                                       DWORD* requiredSize,
                                       SP_DEVINFO_DATA*)
{
    const auto* path = findEntry (set, interfaceData);

    if (path == nullptr)
        return FALSE;

    const auto required = offsetof (SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + path->size() + 1;

    if (requiredSize != nullptr)
        *requiredSize = static_cast<DWORD> (required);

    if (detail == nullptr || detailSize < required || detail->cbSize != sizeof (SP_DEVICE_INTERFACE_DETAIL_DATA_A))
        return FALSE;

    std::memcpy (reinterpret_cast<char*> (detail) + offsetof (SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath),
                 path->c_str(),
                 path->size() + 1);
    return TRUE;
}

BOOL SetupDiEnumDeviceInfo (HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device)
{
    return enumerate (set, index, device);
}

BOOL SetupDiGetDeviceInstanceIdA (HDEVINFO set, SP_DEVINFO_DATA* device, char* id, DWORD size, DWORD* requiredSize)
{
    const auto* entry = findEntry (set, device);

    if (entry == nullptr)
        return FALSE;

    if (requiredSize != nullptr)
        *requiredSize = static_cast<DWORD> (entry->size() + 1);

    if (id == nullptr || size < entry->size() + 1)
        return FALSE;

    std::memcpy (id, entry->c_str(), entry->size() + 1);
    return TRUE;
}

//==============================================================================
HKEY SetupDiOpenDeviceInterfaceRegKey (HDEVINFO set, SP_DEVICE_INTERFACE_DATA* interfaceData, DWORD, REGSAM)
{
    if (const auto* path = findEntry (set, interfaceData); path != nullptr)
        if (const auto folder = MachineFolder::openInterface (*path); folder)
            if (auto registry = MachineFolder::openFolder (folder.get(), MachineLayout::registryFolder); registry)
                return reinterpret_cast<HKEY> (new RegistryKey { std::move (registry) });

    return static_cast<HKEY> (INVALID_HANDLE_VALUE);
}

LSTATUS RegQueryValueExA (HKEY key, const char* valueName, DWORD*, DWORD* type, BYTE* data, DWORD* size)
{
    if (key == nullptr || key == static_cast<HKEY> (INVALID_HANDLE_VALUE))
        return static_cast<LSTATUS> (ERROR_INVALID_HANDLE);

    if (valueName == nullptr || std::strchr (valueName, '/') != nullptr || (data != nullptr && size == nullptr))
        return static_cast<LSTATUS> (ERROR_INVALID_PARAMETER);

    const std::size_t room = data != nullptr ? *size : 0;
    const auto value = MachineFolder::readFile (reinterpret_cast<RegistryKey*> (key)->folder.get(), valueName, room);

    if (! value.exists)
        return static_cast<LSTATUS> (ERROR_FILE_NOT_FOUND);

    if (type != nullptr)
        *type = REG_BINARY;

    if (data == nullptr || value.size > room)
    {
        if (size != nullptr)
            *size = static_cast<DWORD> (value.size);

        return static_cast<LSTATUS> (data == nullptr ? ERROR_SUCCESS : ERROR_MORE_DATA);
    }

    std::copy (value.bytes.begin(), value.bytes.end(), data);
    *size = static_cast<DWORD> (value.bytes.size());
    return static_cast<LSTATUS> (ERROR_SUCCESS);
}

LSTATUS RegCloseKey (HKEY key)
{
    delete reinterpret_cast<RegistryKey*> (key);
    return static_cast<LSTATUS> (ERROR_SUCCESS);
}
