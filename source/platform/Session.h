#pragma once

/** The session that the program runs in. Message thread. */
namespace Session
{

/** Has the signals that end a program or its session quit the application in order, as an interrupt does. Where a
    session ends with messages the toolkit follows them by itself.
*/
void quitOnSignals();

/** Whether a display to open windows on is named at all. Looking for one that is not takes the toolkit ten seconds. */
bool namesDisplay();

} // namespace Session
