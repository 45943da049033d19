#include "platform/PendingRepaints.h"

#include <juce_gui_basics/juce_gui_basics.h>

namespace PendingRepaints
{

namespace
{
class Painter : public juce::Timer
{
public:
    Painter()
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
} // namespace

std::unique_ptr<juce::Timer> keepPainting()
{
    return std::make_unique<Painter>();
}

} // namespace PendingRepaints
