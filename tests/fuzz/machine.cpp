// Machine folders with arbitrary contents.

#include "device/DeviceList.h"
#include "device/HostControllerList.h"
#include "tests/fuzz/Fuzz.h"

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

constexpr const char* usualNames[] { "machine",     "interfaces", "controllers", "registry", "hwinfo_caps",
                                     "unique_name", "driver",     "a",           "b" };

std::string takeName (FuzzedDataProvider& input)
{
    const auto choice = input.ConsumeIntegral<std::uint8_t>();

    if (choice < std::size (usualNames))
        return usualNames[choice];

    // A name cannot contain a slash, so nothing leads out of the folder.
    auto name = input.ConsumeRandomLengthString (maximumTextLength);
    std::replace (name.begin(), name.end(), '/', '.');
    std::replace (name.begin(), name.end(), '\0', ' ');
    return name.empty() || name == "." || name == ".." ? "empty" : name;
}

/** Makes the entries that the input describes, except those that cannot be made. */
void fill (const fs::path& root, FuzzedDataProvider& input)
{
    constexpr std::size_t maximumEntries = 60;
    std::vector<fs::path> folders { root,
                                    root / "machine",
                                    root / "machine" / "interfaces",
                                    root / "machine" / "controllers" };
    std::error_code ignored;

    for (std::size_t i = 0, leftOut = input.ConsumeIntegral<std::uint8_t>() % 8; i < folders.size(); ++i)
        if (i != leftOut)
            fs::create_directory (folders[i], ignored);

    for (std::size_t i = 0; i < maximumEntries && input.remaining_bytes() > 0; ++i)
    {
        const auto parent = folders[input.ConsumeIntegral<std::uint8_t>() % folders.size()];
        const auto kind = input.ConsumeIntegral<std::uint8_t>();
        const auto path = parent / takeName (input);

        if (fs::symlink_status (path, ignored).type() != fs::file_type::not_found)
            continue;

        if (kind % 5 < 2)
        {
            fs::create_directories (path, ignored);
            folders.push_back (path);
        }
        else if (kind % 5 == 2)
            writeFile (path, input.ConsumeBytes<std::uint8_t> (input.ConsumeIntegral<std::uint16_t>()));
        else if (kind % 5 == 3)
            fs::create_symlink (folders[input.ConsumeIntegral<std::uint8_t>() % folders.size()], path, ignored);
        else
            ::mkfifo (path.c_str(), 0600);
    }
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static const TestMachine machine;
    const auto root = fs::path (machine.getPath()).parent_path();
    FuzzedDataProvider input (data, size);

    // Removes what an earlier input made, also beside the machine folder.
    for (const auto& entry : fs::directory_iterator (root))
        fs::remove_all (entry.path());

    fill (root, input);

    const auto numDescriptors = countOfProcess ("fd");

    const HostControllerList controllers;

    for (const auto& id : controllers)
        require (! id.containsAnyOf ("\r\n"), "a controller's id is one line");

    {
        DeviceList devices;
        const auto found = devices.getDevices();
        require (devices.getNumDevices() == static_cast<int> (found.size()), "the list counts its devices");

        for (std::size_t i = 0; i < found.size(); ++i)
        {
            const auto path = found[i]->getPath();
            require (path.startsWith ("\\\\?\\") && path[4] != '.' && path.length() > 4, "hidden folders stay hidden");
            require (devices.findByPath (path) != nullptr, "a device is found by its path");
            require (found[i]->open() == 1, "nobody answers in here");
            found[i]->close();
        }

        if (! found.empty())
        {
            const auto path = found[0]->getPath();
            require (devices.scan (&path) != nullptr, "an interface is found again");
            devices.removeByPath (path);
            require (devices.getNumDevices() >= static_cast<int> (found.size()), "one device is removed at a time");
        }
    }

    require (countOfProcess ("fd") == numDescriptors, "no descriptor stays behind");
    return 0;
}
