#include "platform/WindowIcon.h"

#include "platform/Win32.h"

namespace WindowIcon
{

void apply (const juce::Component& component)
{
    constexpr int firstIcon = 1;
    const auto window = static_cast<HWND> (component.getWindowHandle());

    const auto set = [window] (WPARAM kind, int width, int height)
    {
        // Shared: the system keeps it, and takes it back with the program.
        const auto icon = LoadImageA (GetModuleHandleA (nullptr),
                                      MAKEINTRESOURCEA (firstIcon),
                                      IMAGE_ICON,
                                      GetSystemMetrics (width),
                                      GetSystemMetrics (height),
                                      LR_SHARED);

        if (icon != nullptr)
            SendMessageA (window, WM_SETICON, kind, reinterpret_cast<LPARAM> (icon));
    };

    set (ICON_SMALL, SM_CXSMICON, SM_CYSMICON);
    set (ICON_BIG, SM_CXICON, SM_CYICON);
}

} // namespace WindowIcon
