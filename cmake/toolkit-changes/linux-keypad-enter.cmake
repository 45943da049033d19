# The keypad's Enter is a Return, also for who asks whether that is down, as buttons with a shortcut do. As it comes, it is
# one only as a key press.

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)

quendel_change_toolkit ([[
    return (Keys::keyStates [keybyte] & keybit) != 0;
]] [[
    return (Keys::keyStates [keybyte] & keybit) != 0
        || (keysym == XK_Return && isKeyCurrentlyDown ((XK_KP_Enter & 0xff) | Keys::extendedKeyModifier));
]])
