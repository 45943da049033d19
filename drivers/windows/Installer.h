#pragma once

#include <string>

/** Puts devices and drivers into the system. Each returns nothing, or what failed and the system's error code. */
namespace Installer
{

/** Makes the test bus's root device, and its driver a service that is started.

    @param driverFile  Windows path of QuendelTestBus.sys
*/
std::string installTestBus (const std::string& driverFile);

/** Makes the record of an IEEE 1394 host controller.

    @param instanceId  of three parts, the last one four digits, for instance "ROOT\\OHCI\\0000"
*/
std::string installHostController (const std::string& instanceId);

} // namespace Installer
