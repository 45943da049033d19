#pragma once

#include <cstdint>
#include <juce_core/juce_core.h>

/** A packed firmware version as text: two parts always, a third and a fourth where they are not 0.

    @param version  major, minor and third part in a byte each from the top, then the fourth in the upper half
                    of the lowest byte
*/
juce::String formatFirmwareVersion (std::uint32_t version);
