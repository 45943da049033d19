#include "drivers/windows/Installer.h"

#include "drivers/windows/Failure.h"

#include <memory>
#include <setupapi.h>

namespace Installer
{

namespace
{
constexpr char serviceName[] = "QuendelTestBus";

constexpr GUID systemClass { 0x4d36e97d, 0xe325, 0x11ce, { 0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18 } };
constexpr GUID hostControllerClass { 0x6bdd1fc1, 0x810f, 0x11d0, { 0xbe, 0xc7, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f } };

/** A device-information set for one new device. */
class NewDevice
{
public:
    NewDevice (const GUID& setupClass, const std::string& instanceId)
        : set (SetupDiCreateDeviceInfoList (&setupClass, nullptr))
    {
        device.cbSize = sizeof (device);
        isMade = SetupDiCreateDeviceInfoA (set, instanceId.c_str(), &setupClass, nullptr, nullptr, 0, &device) != FALSE;
    }

    ~NewDevice() { SetupDiDestroyDeviceInfoList (set); }

    NewDevice (const NewDevice&) = delete;
    NewDevice& operator= (const NewDevice&) = delete;

    bool setProperty (DWORD property, std::string text)
    {
        // It counts as a list of texts, which ends with an empty one.
        text.resize (text.size() + 2);

        return isMade
               && SetupDiSetDeviceRegistryPropertyA (set,
                                                     &device,
                                                     property,
                                                     reinterpret_cast<const BYTE*> (text.data()),
                                                     static_cast<DWORD> (text.size()))
                      != FALSE;
    }

    bool registerIt() { return isMade && SetupDiCallClassInstaller (DIF_REGISTERDEVICE, set, &device) != FALSE; }

private:
    HDEVINFO set;
    SP_DEVINFO_DATA device {};
    bool isMade = false;
};

/** As long as the system is starting its own services, it starts no other. */
bool startService (SC_HANDLE service)
{
    constexpr int attempts = 20;

    for (int i = 0; i < attempts; ++i)
        if (StartServiceA (service, 0, nullptr) != FALSE)
            return true;
        else if (GetLastError() != ERROR_SERVICE_DATABASE_LOCKED)
            return false;

    return false;
}

using ServiceHandle = std::unique_ptr<SC_HANDLE__, decltype (&CloseServiceHandle)>;

/** The service manager, once it answers: the first program of a session can be earlier. */
ServiceHandle openManager()
{
    constexpr int attempts = 100;
    constexpr DWORD intervalMs = 50;
    SC_HANDLE manager = nullptr;

    for (int i = 0; manager == nullptr && i < attempts; ++i)
    {
        if (i > 0)
            Sleep (intervalMs);

        manager = OpenSCManagerA (nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    }

    return { manager, CloseServiceHandle };
}

void createAndStartService (const std::string& driverFile)
{
    const auto manager = openManager();
    check (manager != nullptr, "no service manager");

    const ServiceHandle service (CreateServiceA (manager.get(),
                                                 serviceName,
                                                 serviceName,
                                                 SERVICE_ALL_ACCESS,
                                                 SERVICE_KERNEL_DRIVER,
                                                 SERVICE_DEMAND_START,
                                                 SERVICE_ERROR_NORMAL,
                                                 driverFile.c_str(),
                                                 nullptr,
                                                 nullptr,
                                                 nullptr,
                                                 nullptr,
                                                 nullptr),
                                 CloseServiceHandle);
    check (service != nullptr, "no service");
    check (startService (service.get()), "not started");
}
} // namespace

void installTestBus (const std::string& driverFile)
{
    NewDevice bus (systemClass, "ROOT\\QUENDELTESTBUS\\0000");

    check (bus.setProperty (SPDRP_HARDWAREID, "root\\quendeltestbus") && bus.setProperty (SPDRP_SERVICE, serviceName)
               && bus.registerIt(),
           "no device");
    createAndStartService (driverFile);
}

void installHostController (const std::string& instanceId)
{
    NewDevice controller (hostControllerClass, instanceId);
    check (controller.registerIt(), "no device");
}

} // namespace Installer
