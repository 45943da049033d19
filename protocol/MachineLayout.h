#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>

/** What a driver process and the program agree on where there is no Windows: the names in the machine folder, the form
    of the packets and the counter (docs/machine-folder.md).
*/
namespace MachineLayout
{

inline constexpr char interfacesFolder[] = "interfaces";
inline constexpr char controllersFolder[] = "controllers";

/** Of an interface's folder: its registry key, and the socket that its driver listens on. */
inline constexpr char registryFolder[] = "registry";
inline constexpr char driverSocket[] = "driver";

/** What precedes the name of an interface's folder in its device-interface path. */
inline constexpr char pathPrefix[] = "\\\\?\\";

/** Where the machine folder is unless somebody says otherwise. */
inline std::string getDefaultPath()
{
    const auto get = [] (const char* variable) -> std::string
    {
        const char* value = std::getenv (variable);
        return value != nullptr ? value : "";
    };

    if (const auto machine = get ("QUENDEL_MACHINE"); ! machine.empty())
        return machine;

    if (const auto runtime = get ("XDG_RUNTIME_DIR"); ! runtime.empty())
        return runtime + "/quendel-machine";

    return "/tmp/quendel-machine-" + std::to_string (::getuid());
}

//==============================================================================
/** Precedes a request's input bytes. */
struct RequestHeader
{
    std::uint32_t controlCode;
    std::uint32_t outputSize; /**< Bytes that the caller has room for. */
};

/** Precedes a reply's output bytes: 0, or a Windows error code. */
using ReplyHeader = std::uint32_t;

static_assert (sizeof (RequestHeader) == 8);
static_assert (sizeof (ReplyHeader) == 4);

/** The performance counter: CLOCK_MONOTONIC in ticks of 100 ns. */
inline constexpr std::int64_t ticksPerSecond = 10'000'000;

} // namespace MachineLayout
