#include "platform/PendingRepaints.h"

namespace PendingRepaints
{

/** Here the toolkit paints by a timer of its own. */
std::unique_ptr<juce::Timer> keepPainting()
{
    return nullptr;
}

} // namespace PendingRepaints
