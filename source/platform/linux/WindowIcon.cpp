#include "platform/WindowIcon.h"

namespace WindowIcon
{

void apply (const juce::Component&) {}

} // namespace WindowIcon
