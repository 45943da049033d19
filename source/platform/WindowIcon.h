#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

namespace WindowIcon
{

/** Gives a window that is on the desktop the program's icon, in the sizes that title bar and task switcher want.
    Where programs have their icons from a desktop entry, there is nothing to do. Message thread.
*/
void apply (const juce::Component& window);

} // namespace WindowIcon
