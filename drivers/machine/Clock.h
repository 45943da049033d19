#pragma once

#include "protocol/MachineLayout.h"

#include <cstdint>
#include <ctime>

namespace Machine
{

/** The present value of the machine folder's counter, ticks. */
inline std::int64_t readClock()
{
    timespec now {};
    ::clock_gettime (CLOCK_MONOTONIC, &now);
    return std::int64_t { now.tv_sec } * MachineLayout::ticksPerSecond + now.tv_nsec / 100;
}

} // namespace Machine
