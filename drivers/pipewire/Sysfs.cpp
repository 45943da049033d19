#include "drivers/pipewire/Sysfs.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace PipeWire
{

namespace
{
constexpr std::uint32_t fireWireClass = 0x0c00; // serial bus controller, IEEE 1394; a byte for the kind follows
constexpr std::uint32_t idMask = 0xffffff;

std::uint32_t readId (const fs::path& file)
{
    return parseId (readLine (file));
}

/* fw and a number is a node of the bus; its units have a dot and another number. */
bool isBusNode (const std::string& name)
{
    return name.size() > 2 && name.starts_with ("fw") && name.find_first_not_of ("0123456789", 2) == std::string::npos;
}
} // namespace

std::string readLine (const fs::path& file)
{
    std::ifstream stream (file);
    std::string line;
    std::getline (stream, line);
    return line;
}

std::uint32_t parseId (const std::string& text)
{
    const auto isHexadecimal = text.starts_with ("0x");
    const auto* first = text.data() + (isHexadecimal ? 2 : 0);
    const auto* last = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars (first, last, number, isHexadecimal ? 16 : 10);
    return error == std::errc() && end == last ? number : 0;
}

std::vector<std::string> findHostControllers (const std::string& sysfs)
{
    std::error_code error;
    std::vector<fs::path> devices;

    for (auto entry = fs::directory_iterator (fs::path (sysfs) / "bus/pci/devices", error);
         ! error && entry != fs::directory_iterator();
         entry.increment (error))
    {
        if (readId (entry->path() / "class") >> 8 == fireWireClass)
            devices.push_back (entry->path());
    }

    std::sort (devices.begin(), devices.end());
    std::vector<std::string> ids;

    for (const auto& device : devices)
    {
        char id[96];
        std::snprintf (id,
                       sizeof (id),
                       "PCI\\VEN_%04X&DEV_%04X&SUBSYS_%04X%04X&REV_%02X\\",
                       readId (device / "vendor"),
                       readId (device / "device"),
                       readId (device / "subsystem_device"),
                       readId (device / "subsystem_vendor"),
                       readId (device / "revision"));
        ids.push_back (id + device.filename().string());
    }

    return ids;
}

bool isBelow (const std::string& devicePath, const std::string& name)
{
    const fs::path parts (devicePath);
    return std::find (parts.begin(), parts.end(), name) != parts.end();
}

FireWireIds readFireWireIds (const std::string& sysfs, const std::string& devicePath)
{
    for (const auto& part : fs::path (devicePath))
    {
        if (! isBusNode (part.string()))
            continue;

        const auto node = fs::path (sysfs) / "bus/firewire/devices" / part;
        return { readId (node / "vendor") & idMask, readId (node / "model") & idMask };
    }

    return {};
}

} // namespace PipeWire
