#pragma once

#include <string>

/** The windows on the screen, as a user sees them. */
namespace Windows
{

/** One line for each visible window, the uppermost first: x, y, width and height of its client area on the screen,
    its class and its title, separated by tabs. Behind each, one line with a leading tab for each visible child:
    the same of the child.
*/
std::string list();

/** Moves the client area of the visible window of this title to a place on the screen; false when there is none. */
bool moveTo (const std::string& title, int x, int y);

/** How many threads of the program that has the visible window of this title run above normal priority; -1 when there
   is no such window.
*/
int countUrgentThreads (const std::string& title);

} // namespace Windows
