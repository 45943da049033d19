#pragma once

#include <string>

/** Puts devices and drivers into the system. Each throws a Failure that says which step failed. */
namespace Installer
{

/** Makes the test bus's root device, and its driver a service that is started.

    @param driverFile  Windows path of QuendelTestBus.sys
*/
void installTestBus (const std::string& driverFile);

/** Makes the record of an IEEE 1394 host controller.

    @param instanceId  of three parts, the last one four digits, for instance "ROOT\\OHCI\\0000"
*/
void installHostController (const std::string& instanceId);

} // namespace Installer
