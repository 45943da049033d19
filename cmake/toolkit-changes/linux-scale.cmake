# Windows are as large as the user has told the display that text is to be (Xft.dpi), as other programs' are. As it comes,
# the toolkit knows only the settings of two desktops and the size that the display says it has.

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)

quendel_change_toolkit ([[
        if (name.isNotEmpty())
        {
            // Ubuntu and derived distributions now save a per-display scale factor as a configuration
]] [[
        const String resources (CharPointer_UTF8 (((_XPrivDisplay) XWindowSystem::getInstance()->getDisplay())->xdefaults));
        const auto textDpi = resources.fromFirstOccurrenceOf ("Xft.dpi:", false, false).getDoubleValue();

        if (textDpi >= 48.0 && textDpi <= 768.0)
            return textDpi / 96.0;

        if (name.isNotEmpty())
        {
            // Ubuntu and derived distributions now save a per-display scale factor as a configuration
]])
