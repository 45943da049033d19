#pragma once

/** The session that the program runs in. Message thread. */
namespace Session
{

/** Makes the signals that end a program or its session quit the application in order, as an interrupt does. Where a
    session ends with messages, the toolkit follows them by itself.
*/
void quitOnSignals();

/** Whether a display is named at all. Without one, the toolkit would look for it for ten seconds. */
bool namesDisplay();

} // namespace Session
