#include "platform/WindowIcon.h"

#include "platform/Win32.h"

namespace WindowIcon
{

void apply (const juce::Component& component)
{
    constexpr int firstIcon = 1;
    const auto window = static_cast<HWND> (component.getWindowHandle());

    // For the window's own display, which need not be like the main one. The icons are let go with the program.
    const auto set = [&] (WPARAM kind, int unscaledSize)
    {
        const int size = juce::roundToInt (unscaledSize * component.getPeer()->getPlatformScaleFactor());
        const auto* name = MAKEINTRESOURCEA (firstIcon);

        if (auto* icon = LoadImageA (GetModuleHandleA (nullptr), name, IMAGE_ICON, size, size, LR_DEFAULTCOLOR))
            SendMessageA (window, WM_SETICON, kind, reinterpret_cast<LPARAM> (icon));
    };

    constexpr int smallSize = 16, bigSize = 32;
    set (ICON_SMALL, smallSize);
    set (ICON_BIG, bigSize);
}

} // namespace WindowIcon
