#pragma once

/** The Windows calls that the program makes, by their own names.

    On Windows this is the system's own header. Elsewhere it is a stand-in of ours that declares just those
    calls, over the machine folder that a driver process serves (docs/machine-folder.md).
*/
#if defined(_WIN32)
// Without it the system's header brings hundreds of names that the program would have to stay clear of.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif

// The others want it first.
#include <windows.h>

#include <dbt.h>
#include <setupapi.h>

// <windows.h> turns these into macros, and the program has names of its own like them.
#undef min
#undef max
#else
#include "platform/linux/Win32StandIn.h"
#endif
