#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace PipeWire
{

/** The device-instance ids of the machine's FireWire host controllers, in the manner of Windows and in ascending order
    of their PCI addresses.

    @param sysfs  where the kernel's device tree is mounted, usually /sys
*/
std::vector<std::string> findHostControllers (const std::string& sysfs);

/** Ids of a device on the FireWire bus, each 24 bits; 0: not known. */
struct FireWireIds
{
    std::uint32_t vendor = 0, model = 0;
};

/** Reads a device's ids from the FireWire bus.

    @param devicePath  the device's path below sysfs, such as PipeWire's "device.sysfs.path"; the unit or a sound card
                       below it will do
*/
FireWireIds readFireWireIds (const std::string& sysfs, const std::string& devicePath);

/** Whether a device is the one of that name in the kernel, or below it.

    @param devicePath  as for readFireWireIds()
*/
bool isBelow (const std::string& devicePath, const std::string& name);

/** What is in a folder, in ascending order; nothing when there is no such folder. */
std::vector<std::filesystem::path> listFolder (const std::filesystem::path& folder);

/** Whether a name begins so and goes on with a number. */
bool isNumbered (const std::string& name, std::string_view start);

/** The first line of one of the kernel's files; empty when there is none. */
std::string readLine (const std::filesystem::path& file);

/** A number as properties and the kernel's files write it, in hexadecimal with 0x in front or in decimal; 0 for
    anything else. */
std::uint32_t parseId (const std::string& text);

} // namespace PipeWire
