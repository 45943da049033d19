#pragma once

#include "drivers/pipewire/Cycle.h"

#include <cstdint>
#include <span>
#include <vector>

namespace PipeWire
{

/** Adds the cycles that a message of the profiler tells of, in its order.

    @param message  a pod, with its header, at a multiple of eight bytes: any bytes are good. Cycles without a readable
                    driver or clock are left out, and so are followers that cannot be read or take no part.
*/
void readProfile (std::span<const std::uint8_t> message, std::vector<Cycle>& cycles);

} // namespace PipeWire
