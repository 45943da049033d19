# A key that is down when a window gets the keyboard counts there from its next press on. As it comes, the repeats of a
# key that is held a little too long reach whatever window comes to the front, a press each.

set (file juce_gui_basics/native/juce_win32_Windowing.cpp)

if (version VERSION_GREATER_EQUAL 8)
    return()
endif()

quendel_change_toolkit ([[
    bool doKeyChar (int key, const LPARAM flags)
    {
]] [[
    // By scan code: the keys that have been pressed since the keyboard came to one of our windows.
    static inline bool keysPressedHere[256] {};

    static bool isPressedHere (LPARAM flags)
    {
        constexpr LPARAM wasDownBefore = 1 << 30;
        auto& pressed = keysPressedHere[(flags >> 16) & 0xff];
        pressed = pressed || (flags & wasDownBefore) == 0;
        return pressed;
    }

    bool doKeyChar (int key, const LPARAM flags)
    {
]])

quendel_change_toolkit ([[
                if (doKeyDown (wParam))
                    return 0;
]] [[
                if (! isPressedHere (lParam) || doKeyDown (wParam))
                    return 0;
]])

quendel_change_toolkit ([[
                if (doKeyChar ((int) wParam, lParam))
                    return 0;
]] [[
                if (! isPressedHere (lParam) || doKeyChar ((int) wParam, lParam))
                    return 0;
]])

quendel_change_toolkit ([[
            case WM_SETFOCUS:
                updateKeyModifiers();
]] [[
            case WM_SETFOCUS:
                std::fill (std::begin (keysPressedHere), std::end (keysPressedHere), false);
                updateKeyModifiers();
]])
