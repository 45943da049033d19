#pragma once

#include <juce_core/juce_core.h>
#include <memory>

namespace NativeDialogs
{

/** Ends with the result. */
struct Watch
{
    virtual ~Watch() = default;
};

/** To be called right before a message box or a save dialog is opened. Message thread.

    As long as the result lives, a quit closes the system's own dialogs on the message thread as if the user had
    cancelled them: they have a message loop of their own, which knows nothing of the application's. Where all dialogs
    are the toolkit's, which a quit closes anyway, the result is null; the save dialog then opens with the keyboard on
    the name.
*/
std::unique_ptr<Watch> attend();

} // namespace NativeDialogs
