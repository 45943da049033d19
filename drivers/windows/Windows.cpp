#include "drivers/windows/Windows.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>

namespace Windows
{

namespace
{
constexpr char boxClass[] = "#32770";

BOOL CALLBACK addText (HWND window, LPARAM context)
{
    constexpr int room = 512;
    constexpr UINT timeoutMs = 2000;
    char text[room] {};
    SendMessageTimeoutA (window,
                         WM_GETTEXT,
                         room,
                         reinterpret_cast<LPARAM> (text),
                         SMTO_ABORTIFHUNG,
                         timeoutMs,
                         nullptr);
    reinterpret_cast<std::string*> (context)->append (text).append ("|");
    return TRUE;
}
} // namespace

std::string getBoxText (const std::string& title)
{
    std::string text;

    if (const auto box = FindWindowA (boxClass, title.c_str()); box != nullptr)
        EnumChildWindows (box, addText, reinterpret_cast<LPARAM> (&text));

    std::replace (text.begin(), text.end(), '\n', ' ');
    return text;
}

std::string getKeyboardOwner()
{
    constexpr int room = 256;
    char title[room] {}, className[room] {};
    GUITHREADINFO info {};
    info.cbSize = sizeof (info);

    GetWindowTextA (GetForegroundWindow(), title, room);

    if (GetGUIThreadInfo (0, &info) != FALSE)
        GetClassNameA (info.hwndFocus, className, room);

    return std::string (className) + " " + title;
}

bool KeyWatch::watch()
{
    stop();
    window = GetForegroundWindow();
    const auto id = GetWindowThreadProcessId (window, nullptr);
    thread = OpenThread (SYNCHRONIZE | THREAD_QUERY_LIMITED_INFORMATION, FALSE, id);

    return window != GetDesktopWindow() && AttachThreadInput (GetCurrentThreadId(), id, TRUE) != FALSE;
}

void KeyWatch::stop()
{
    if (thread == nullptr)
        return;

    AttachThreadInput (GetCurrentThreadId(), GetThreadId (thread), FALSE);
    CloseHandle (thread);
}

int KeyWatch::countDown() const
{
    constexpr BYTE isDown = 0x80;
    constexpr UINT timeoutMs = 10'000;

    // Behind the pointer's buttons; each key of the left or right hand is also one for both hands.
    const auto isKey = [] (int code)
    { return code >= VK_BACK && code != VK_SHIFT && code != VK_CONTROL && code != VK_MENU; };

    if (WaitForSingleObject (thread, 0) != WAIT_TIMEOUT)
        return -1;

    BYTE states[256] {};
    GetKeyboardState (states);
    int number = 0;

    for (int code = 0; code < 256; ++code)
        number += isKey (code) && (states[code] & isDown) != 0 ? 1 : 0;

    // Taken out of the queue, but yet to be handled: this is answered afterwards.
    SendMessageTimeoutA (window, WM_NULL, 0, 0, SMTO_NORMAL, timeoutMs, nullptr);
    return number;
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
