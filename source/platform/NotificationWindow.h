#pragma once

#include "platform/Win32.h"
#include <atomic>
#include <functional>

/** What device notifications come to: on Windows a message-only window, elsewhere a thread's watch over the machine
    folder. There is one at a time. Any thread where nothing else is said.
*/
namespace NotificationWindow
{

using Receiver = std::function<void (UINT message, WPARAM wParam, LPARAM lParam)>;

/** A message of our own: interfaces may have come or gone of which no notification has told; when wParam is not 0, also
    such that were known before.
*/
inline constexpr UINT changesMissed = WM_APP;

/** Makes the window and gives the receiver every message that reaches it, on this thread, until it is closed.
    @param window  is set to the handle as soon as there is one; stays null when it cannot be made
*/
void run (std::atomic<HWND>& window, const Receiver& receiver);

/** Makes run return. */
void close (HWND window);

/** Tells the receiver of interfaces of a class that come and go, by WM_DEVICECHANGE, and changesMissed once that has
    begun. @returns null on failure
*/
HDEVNOTIFY registerInterfaces (HWND window, const GUID& interfaceClass);

/** Ends what registerInterfaces began. */
void unregisterInterfaces (HDEVNOTIFY registration);

} // namespace NotificationWindow
