#pragma once

#include <string>
#include <windows.h>

/** The program's windows, as the system around them sees them. */
namespace Windows
{

/** How many threads of the program that has the visible window of this title run above normal priority; -1 when there
    is no such window.
*/
int countUrgentThreads (const std::string& title);

/** What the system's box of this title says, its lines and buttons separated by "|"; nothing when there is no such box.
 */
std::string getBoxText (const std::string& title);

/** The class of the control that has the keyboard and, behind a blank, the title of its window. */
std::string getKeyboardOwner();

/** Which keys a program has taken in. */
class KeyWatch
{
public:
    KeyWatch() = default;
    ~KeyWatch() { stop(); }

    KeyWatch (const KeyWatch&) = delete;
    KeyWatch& operator= (const KeyWatch&) = delete;

    /** Looks at the program whose window is in front from now on. @returns false when no window is */
    bool watch();

    /** How many keys the program has taken in as pressed and not yet as released; -1 when its thread has ended.

        A program that looks at the keyboard's state finds a key up that was let go before this has counted it.
    */
    int countDown() const;

private:
    void stop();

    HWND window = nullptr;
    HANDLE thread = nullptr;
};

} // namespace Windows
