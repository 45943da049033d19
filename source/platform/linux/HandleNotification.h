#pragma once

#include "platform/linux/Win32StandIn.h"
#include <string>

/** Sends every window that registered an open handle of an interface a WM_DEVICECHANGE about that handle, as Windows
    does before it removes a device and when it has or could not, and returns when all have answered. The machine folder
    has no such events: this is for tests.

    @param path   of the interface, as it was opened
    @returns      the number of registered handles
*/
int notifyHandlesOf (const std::string& path, WPARAM event);

/** The path that an open device-interface handle was opened with. */
std::string getPathOfHandle (HANDLE handle);
