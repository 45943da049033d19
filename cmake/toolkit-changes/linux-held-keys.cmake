# A key that is down when a window gets the keyboard counts there from its next press on. As it comes, the repeats of a
# key that is held a little too long reach whatever window comes to the front, a press each. The display is asked to leave
# out that a repeating key is let go in between, which the toolkit cannot always tell from the real thing.

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)

quendel_change_toolkit ([[
static void updateKeyStates (int keycode, bool press) noexcept
{
]] [[
// Keys that have been down since before the keyboard came to a window. The display tells which those are right after it
// has told that the keyboard comes.
static char keysHeldBefore [32];
static bool keyboardHasCome = false;

static void setKeyStates (const char* down) noexcept
{
    const bool isNew = std::exchange (keyboardHasCome, false);

    for (int i = 0; i < 32; ++i)
    {
        keysHeldBefore[i] = (char) (down[i] & (isNew ? 0xff : keysHeldBefore[i]));
        Keys::keyStates[i] = (char) (down[i] & ~keysHeldBefore[i]);
    }
}

static void updateKeyStates (int keycode, bool press) noexcept
{
]])

quendel_change_toolkit ([[
    auto oldMods = ModifierKeys::currentModifiers;
    Keys::refreshStaleModifierKeys();

    char utf8 [64] = { 0 };
]] [[
    if ((keysHeldBefore [keyEvent.keycode >> 3] & (1 << (keyEvent.keycode & 7))) != 0)
        return;

    auto oldMods = ModifierKeys::currentModifiers;
    Keys::refreshStaleModifierKeys();

    char utf8 [64] = { 0 };
]])

quendel_change_toolkit ([[
        updateKeyStates ((int) keyEvent.keycode, false);
]] [[
        keysHeldBefore [keyEvent.keycode >> 3] &= (char) ~(1 << (keyEvent.keycode & 7));
        updateKeyStates ((int) keyEvent.keycode, false);
]])

quendel_change_toolkit ([[
    peer->isActiveApplication = true;

    if (isFocused (]] [[
    peer->isActiveApplication = true;
    keyboardHasCome = true;

    if (isFocused (]])

quendel_change_toolkit ([[
        memcpy (Keys::keyStates, keymapEvent.key_vector, 32);
]] [[
        setKeyStates (keymapEvent.key_vector);
]])

quendel_change_toolkit ([[
    // No X Server running
    if (display == nullptr)
        return false;
]] [[
    // No X Server running
    if (display == nullptr)
        return false;

    if (auto* function = DynamicLibrary ("libX11.so.6").getFunction ("XkbSetDetectableAutoRepeat"))
        reinterpret_cast<int (*) (::Display*, int, int*)> (function) (display, True, nullptr);
]])
