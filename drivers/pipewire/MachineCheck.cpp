#include "drivers/pipewire/MachineCheck.h"

#include "drivers/pipewire/Sysfs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>

namespace fs = std::filesystem;

namespace PipeWire
{

namespace
{
using Lines = std::vector<std::string>;

Lines readLines (const fs::path& file)
{
    std::ifstream stream (file);
    Lines lines;

    for (std::string line; std::getline (stream, line);)
        lines.push_back (std::move (line));

    return lines;
}

/* The folders in a folder whose names begin so and go on with a number, in ascending order. */
std::vector<fs::path> listNumbered (const fs::path& folder, const std::string& start)
{
    auto paths = listFolder (folder);
    std::erase_if (paths, [&start] (const auto& path) { return ! isNumbered (path.filename().string(), start); });
    return paths;
}

/* The thread's name may have blanks and parentheses in it; the scheduling policy is the 39th field behind it. */
bool isRealTime (const fs::path& task)
{
    constexpr std::size_t policyField = 38;
    const auto status = readLine (task / "stat");
    std::istringstream text (status.substr (status.rfind (')') + 1));
    const Lines fields (std::istream_iterator<std::string> (text), {});

    // A thread that has just ended is passed over.
    return fields.size() <= policyField || fields[policyField] != "0";
}

void checkLoops (const fs::path& process, Lines& lines)
{
    struct stat status;

    if (::stat (process.c_str(), &status) != 0 || status.st_uid != ::geteuid())
        return;

    const auto tasks = listNumbered (process / "task", "");
    const auto isSlowLoop = [] (const fs::path& task)
    { return readLine (task / "comm").starts_with ("data-loop") && ! isRealTime (task); };

    if (std::none_of (tasks.begin(), tasks.end(), isSlowLoop))
        return;

    const auto name = readLine (process / "comm") + " (process " + process.filename().string() + ")";
    lines.push_back ("the data loop of " + name + " has no real-time priority");

    for (const auto& limit : readLines (process / "limits"))
    {
        constexpr std::string_view what = "Max realtime priority";

        if (limit.starts_with (what) && std::strtol (limit.c_str() + what.size(), nullptr, 10) == 0)
            lines.push_back ("the limits of " + name + " forbid real-time priority: rtprio is 0");
    }
}

void checkGovernors (const fs::path& processors, Lines& lines)
{
    std::set<std::string> governors;

    for (const auto& processor : listNumbered (processors, "cpu"))
        governors.insert (readLine (processor / "cpufreq/scaling_governor"));

    for (const auto* unspoken : { "", "performance" })
        governors.erase (unspoken);

    for (const auto& governor : governors)
        lines.push_back ("processors save power: their governor is \"" + governor + "\", not \"performance\"");
}

/* A line has a number with a colon, a count for each processor, the interrupt's kind, and at its end who waits for it.
 */
void checkInterrupts (const fs::path& file, Lines& lines)
{
    for (const auto& line : readLines (file))
    {
        const auto users = line.substr (std::min (line.rfind ("  "), line.size()));

        if (users.find ("firewire_ohci") != std::string::npos && users.find (',') != std::string::npos)
            lines.push_back ("interrupt" + line.substr (0, line.find (':')) + " is shared:" + users.substr (1));
    }
}
} // namespace

std::vector<std::string> checkMachine (const std::string& root)
{
    Lines lines;

    for (const auto& process : listNumbered (root + "/proc", ""))
        checkLoops (process, lines);

    checkGovernors (root + "/sys/devices/system/cpu", lines);
    checkInterrupts (root + "/proc/interrupts", lines);
    return lines;
}

} // namespace PipeWire
