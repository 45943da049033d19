#pragma once

#include "platform/Win32.h"

/** Hears every message that reaches the notification window, on the notification thread, with the window's
    listener lock held. Destroyed through its own type only.
*/
class Win32MessageListener
{
public:
    virtual void handleWin32Message (UINT message, WPARAM wParam, LPARAM lParam) = 0;

protected:
    ~Win32MessageListener() = default;
};
