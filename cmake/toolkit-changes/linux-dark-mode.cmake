# No window here looks different on a dark desktop, so nobody asks whether it is one. As it comes, the toolkit starts
# another program for that before the first window, and waits for its end.

set (file juce_gui_basics/native/juce_linux_Windowing.cpp juce_gui_basics/native/juce_Windowing_linux.cpp)

quendel_change_toolkit ([[
            xSettings->addListener (this);

        darkModeEnabled = windowSystem->isDarkModeActive();
]] [[
            xSettings->addListener (this);
]])
