#pragma once

#include "drivers/windows/Interface.h"

/** The interfaces that are plugged in, and the counter that they measure with. Everything is called with the driver's
    lock held.
*/
namespace Bus
{

/** The place of an interface on the bus. */
struct Slot
{
    Interface* interface;                               /**< Null when it is not plugged in. */
    char name[sizeof (Simulation::DeviceConfig::name)]; /**< Whose place it is, whether plugged in or not. */
};

inline constexpr std::uint32_t numSlots = 8;
extern Slot slots[numSlots];

/** Plugs an interface in, at the place that it had before.

    @param name  empty: the next of the bus's own names; the chosen one goes into the answer
    @returns     null, or why it could not be done
*/
const char* plug (const char* name, Answer& answer);

void unplug (Slot& slot);

/** Takes everything away; places are nobody's, and time passes by order. */
void reset();

/** The counter's ticks. */
std::int64_t readClock();

/** Whether time passes as everywhere, or by order only. */
void setClock (bool isReal);

/** Lets time pass. @returns false when it does not do so by order */
bool tick (std::uint32_t milliseconds);

} // namespace Bus
