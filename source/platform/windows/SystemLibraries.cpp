#include "platform/Win32.h"

/* Part of the program itself, not of its library: libraries come from the system's folder, whatever lies beside the
   program or in the folder that it was started in. */

// The ones that the toolkit asks for by name later. Before anything of the toolkit runs.
[[maybe_unused]] static const bool onlyTheSystemsFolder = SetDefaultDllDirectories (LOAD_LIBRARY_SEARCH_SYSTEM32) != 0;

#if ! defined(_MSC_VER)

/** What the system's loader goes by when it looks for the libraries that the program is linked with (Windows 10 1607
    and later). Microsoft's linker makes one by itself; here packaging/windows/finish-program puts it into the program's
    header, and finds it by its section.
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
