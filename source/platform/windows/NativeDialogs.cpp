#include "platform/NativeDialogs.h"

#include "platform/Win32.h"
#include <juce_events/juce_events.h>

namespace NativeDialogs
{

namespace
{
/** The toolkit's own timers and messages stop with a quit; the system's go on in any message loop of the thread. */
class TimedWatch : public Watch
{
public:
    TimedWatch() : timer (::SetTimer (nullptr, 0, intervalMs, lookForQuit)) {}
    ~TimedWatch() override { ::KillTimer (nullptr, timer); }

private:
    static constexpr UINT intervalMs = 100;

    static void CALLBACK lookForQuit (HWND, UINT, UINT_PTR, DWORD)
    {
        if (juce::MessageManager::getInstance()->hasStopMessageBeenSent())
            ::EnumThreadWindows (::GetCurrentThreadId(), closeDialog, 0);
    }

    /** One that is disabled waits for another in front of it, and its turn comes. */
    static BOOL CALLBACK closeDialog (HWND window, LPARAM)
    {
        constexpr int room = 8;
        char className[room] {};
        ::GetClassNameA (window, className, room);

        if (juce::String (className) == "#32770" && ::IsWindowVisible (window) != 0 && ::IsWindowEnabled (window) != 0)
            ::PostMessageA (window, WM_CLOSE, 0, 0);

        return TRUE;
    }

    const UINT_PTR timer;
};
} // namespace

std::unique_ptr<Watch> attend()
{
    return std::make_unique<TimedWatch>();
}

} // namespace NativeDialogs
