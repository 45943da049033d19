# A window that cannot be resized stays so whenever it is moved. As it comes, the toolkit replaces the hints that say so
# with others, and tiling window managers then give the window any size.

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)

quendel_change_toolkit ([[
            hints->flags  = USSize | USPosition;
]] [[
            hints->flags  = USSize | USPosition;

            if ((peer->getStyleFlags() & ComponentPeer::windowIsResizable) == 0)
            {
                hints->flags |= PMinSize | PMaxSize;
                hints->min_width  = hints->max_width  = newBounds.getWidth();
                hints->min_height = hints->max_height = newBounds.getHeight();
            }

]])
