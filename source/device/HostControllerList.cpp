#include "device/HostControllerList.h"

#include "device/DriverText.h"
#include <vector>

/** The setup class GUID_DEVCLASS_1394, which some toolchains' libraries lack. */
static constexpr GUID hostControllerClass { 0x6bdd1fc1,
                                            0x810f,
                                            0x11d0,
                                            { 0xbe, 0xc7, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f } };

HostControllerList::HostControllerList()
    : set (SetupDiGetClassDevsA (&hostControllerClass, nullptr, nullptr, DIGCF_PRESENT))
{
    if (set == INVALID_HANDLE_VALUE)
        return;

    std::vector<char> id (1024);

    for (DWORD index = 0;; ++index)
    {
        SP_DEVINFO_DATA device {};
        device.cbSize = sizeof (device);

        if (SetupDiEnumDeviceInfo (set, index, &device) == FALSE)
            return;

        const auto read = [&]
        {
            DWORD required = 0;

            if (SetupDiGetDeviceInstanceIdA (set, &device, id.data(), static_cast<DWORD> (id.size()), &required)
                != FALSE)
                return true;

            if (required <= id.size())
                return false;

            id.resize (required);
            return SetupDiGetDeviceInstanceIdA (set, &device, id.data(), required, nullptr) != FALSE;
        };

        if (! read())
            return;

        add (textFromDriver (id.data(), id.size()));
    }
}

HostControllerList::~HostControllerList()
{
    if (set != INVALID_HANDLE_VALUE)
        SetupDiDestroyDeviceInfoList (set);
}
