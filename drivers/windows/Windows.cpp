#include "drivers/windows/Windows.h"

#include <windows.h>

#include <tlhelp32.h>

#include <sstream>

namespace Windows
{

namespace
{
constexpr int maximumText = 512;

/** A window's title is the system's to tell, even when its program is busy; a control's text is the control's. */
std::string getText (HWND window)
{
    constexpr UINT timeoutMs = 2000;
    char text[maximumText] {};

    if (GetAncestor (window, GA_PARENT) == GetDesktopWindow())
        GetWindowTextA (window, text, maximumText);
    else
        SendMessageTimeoutA (window,
                             WM_GETTEXT,
                             maximumText,
                             reinterpret_cast<LPARAM> (text),
                             SMTO_ABORTIFHUNG,
                             timeoutMs,
                             nullptr);

    std::string result (text);

    for (auto& character : result)
        if (character == '\n' || character == '\r' || character == '\t')
            character = ' ';

    return result;
}

std::string describe (HWND window)
{
    RECT area {};
    GetClientRect (window, &area);
    POINT origin {};
    ClientToScreen (window, &origin);

    char className[maximumText] {};
    GetClassNameA (window, className, maximumText);

    std::ostringstream line;
    line << origin.x << '\t' << origin.y << '\t' << area.right << '\t' << area.bottom << '\t' << className << '\t'
         << getText (window) << '\n';
    return line.str();
}

BOOL CALLBACK addChild (HWND window, LPARAM context)
{
    if (IsWindowVisible (window))
        *reinterpret_cast<std::string*> (context) += '\t' + describe (window);

    return TRUE;
}

BOOL CALLBACK addWindow (HWND window, LPARAM context)
{
    if (IsWindowVisible (window))
    {
        *reinterpret_cast<std::string*> (context) += describe (window);
        EnumChildWindows (window, addChild, context);
    }

    return TRUE;
}
} // namespace

std::string list()
{
    std::string lines;
    EnumWindows (addWindow, reinterpret_cast<LPARAM> (&lines));
    return lines;
}

bool moveTo (const std::string& title, int x, int y)
{
    const auto window = FindWindowA (nullptr, title.c_str());

    if (window == nullptr)
        return false;

    RECT frame {};
    GetWindowRect (window, &frame);
    POINT origin {};
    ClientToScreen (window, &origin);

    return SetWindowPos (window,
                         nullptr,
                         x - (origin.x - frame.left),
                         y - (origin.y - frame.top),
                         0,
                         0,
                         SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE)
           != FALSE;
}

int countUrgentThreads (const std::string& title)
{
    DWORD program = 0;

    if (GetWindowThreadProcessId (FindWindowA (nullptr, title.c_str()), &program) == 0)
        return -1;

    int result = 0;
    THREADENTRY32 entry {};
    entry.dwSize = sizeof (entry);
    const auto threads = CreateToolhelp32Snapshot (TH32CS_SNAPTHREAD, 0);

    for (auto more = Thread32First (threads, &entry); more != FALSE; more = Thread32Next (threads, &entry))
    {
        if (entry.th32OwnerProcessID != program)
            continue;

        const auto thread = OpenThread (THREAD_QUERY_INFORMATION, FALSE, entry.th32ThreadID);
        const auto priority = GetThreadPriority (thread);
        CloseHandle (thread);

        if (priority != THREAD_PRIORITY_ERROR_RETURN && priority > THREAD_PRIORITY_NORMAL)
            ++result;
    }

    CloseHandle (threads);
    return result;
}

} // namespace Windows
