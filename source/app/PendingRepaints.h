#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Brings to the screen what the toolkit has put off until the display's next vertical blank.

    Where the graphics system has no vertical blank to offer, as in some remote sessions, the toolkit would wait for
    ever and the figures stand still. Elsewhere there is nothing left to do. Message thread.
*/
class PendingRepaints : private juce::Timer
{
public:
    PendingRepaints()
    {
        constexpr int intervalMs = 50;
        startTimer (intervalMs);
    }

private:
    void timerCallback() override
    {
        // Backwards: painting can make a window go.
        for (int i = juce::ComponentPeer::getNumPeers(); --i >= 0;)
            if (auto* peer = juce::ComponentPeer::getPeer (i))
                peer->performAnyPendingRepaintsNow();
    }
};
