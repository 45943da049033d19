#include "platform/Win32.h"

#include <cstdint>

/* Part of the program itself, not of its library: what must hold before anything of the toolkit runs. Libraries come
    from the system's folder, whatever lies beside the program or in the folder that it was started in. */

// The ones that the toolkit asks for by name later.
[[maybe_unused]] static const bool onlyTheSystemsFolder = SetDefaultDllDirectories (LOAD_LIBRARY_SEARCH_SYSTEM32) != 0;

/** The driver tells addresses in 32 bits, and the program's header wants no memory above 2 GiB. A system that gives it
    such memory all the same is unknown to us: it says so, as the figures would stay empty without a reason. Wine names
    the whole of its memory, and takes the low part first.
*/
[[maybe_unused]] static const bool isWithinReach = []
{
    constexpr int numBits = 31;
    SYSTEM_INFO system {};
    GetSystemInfo (&system);
    const auto highest = reinterpret_cast<std::uintptr_t> (system.lpMaximumApplicationAddress);

    const bool isBelow = highest >> numBits == 0;

    if (! isBelow && GetProcAddress (GetModuleHandleA ("ntdll.dll"), "wine_get_version") == nullptr)
        MessageBoxA (nullptr,
                     "The interfaces' driver cannot reach all memory here: figures may stay empty.",
                     "Quendel",
                     MB_OK);

    return isBelow;
}();

#if ! defined(_MSC_VER)

/** What the system's loader goes by when it looks for the libraries that the program is linked with (Windows 10 1607
    and later). Microsoft's linker makes one by itself; here packaging/windows/program-header puts it into the
    program's header, and finds it by its section.
*/
struct LoadConfiguration
{
    DWORD size;
    BYTE unused[74];
    WORD dependentLoadFlags;
    ULONGLONG alsoUnused[4];
};

static_assert (sizeof (LoadConfiguration) == 112 && offsetof (LoadConfiguration, dependentLoadFlags) == 78);

__attribute__ ((section (".loadcfg"),
                used)) static const LoadConfiguration loadConfiguration { sizeof (LoadConfiguration),
                                                                          {},
                                                                          LOAD_LIBRARY_SEARCH_SYSTEM32,
                                                                          {} };

#endif
