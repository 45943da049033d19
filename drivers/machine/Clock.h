#pragma once

#include <cstdint>

namespace Machine
{

/** The present value of the machine folder's counter, ticks. */
std::int64_t readClock();

} // namespace Machine
