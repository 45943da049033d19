#pragma once

#include <juce_events/juce_events.h>
#include <memory>

namespace PendingRepaints
{

/** Brings to the screen what the toolkit has put off until the display's next vertical blank, as long as the result
    lives. Message thread.

    Where Windows has no vertical blank to offer, as in some remote sessions, the toolkit would wait for ever and the
    figures stand still. Elsewhere there is nothing to do, and the result is null.
*/
std::unique_ptr<juce::Timer> keepPainting();

} // namespace PendingRepaints
