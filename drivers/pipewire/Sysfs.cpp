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

} // namespace

std::vector<fs::path> listFolder (const fs::path& folder)
{
    std::error_code error;
    std::vector<fs::path> paths;

    for (auto entry = fs::directory_iterator (folder, error); ! error && entry != fs::directory_iterator();
         entry.increment (error))
        paths.push_back (entry->path());

    std::sort (paths.begin(), paths.end());
    return paths;
}

bool isNumbered (const std::string& name, std::string_view start)
{
    return name.size() > start.size() && name.starts_with (start)
           && name.find_first_not_of ("0123456789", start.size()) == std::string::npos;
}

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
    std::vector<std::string> ids;

    for (const auto& device : listFolder (sysfs + "/bus/pci/devices"))
    {
        if (readId (device / "class") >> 8 != fireWireClass)
            continue;

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
        // A node of the bus; its units have a dot and another number.
        if (! isNumbered (part.string(), "fw"))
            continue;

        const auto node = fs::path (sysfs) / "bus/firewire/devices" / part;
        return { readId (node / "vendor") & idMask, readId (node / "model") & idMask };
    }

    return {};
}

} // namespace PipeWire
