#include "drivers/machine/Clock.h"

#include "protocol/MachineLayout.h"

#include <ctime>

namespace Machine
{

std::int64_t readClock()
{
    timespec now {};
    ::clock_gettime (CLOCK_MONOTONIC, &now);
    return std::int64_t { now.tv_sec } * MachineLayout::ticksPerSecond + now.tv_nsec / 100;
}

} // namespace Machine
