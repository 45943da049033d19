#pragma once

#include <string>

/** Brings device notifications to the program where Wine does not.

    Wine 8.0 hands a window that was made and registered with the 8-bit calls the notification with 16-bit text, of
    which the program sees the first character. The bridge registers a window just like the program's; for each
    notification that it gets in 16 bits it sends one in 8 bits to the program. One that it gets in 8 bits has reached
    the program, too, and is left alone.
*/
namespace Bridge
{

/** Starts it on the calling thread, which is to dispatch its messages from now on. @returns false when it cannot be */
bool start();

/** Tells the program of a change of an interface, as the system would.

    @param event  a DBT_ value
    @param path   of the interface
    @returns      false when there is no program, or it does not answer
*/
bool notifyProgram (unsigned long event, const std::string& path);

} // namespace Bridge
