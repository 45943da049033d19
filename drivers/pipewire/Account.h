#pragma once

#include "drivers/pipewire/Cycle.h"
#include "drivers/pipewire/Roster.h"

#include <cstdint>
#include <map>
#include <vector>

namespace PipeWire
{

/** What one node did in one cycle; times in nanoseconds, 0 for what it has not done. */
struct Part
{
    const NodeCycle* cycle = nullptr; /**< What was reported. */
    const Node* node = nullptr;       /**< Never null. */
    std::int64_t begin = 0;           /**< The driver's signal that began its turn; 0: it had none. */
    std::int64_t signal = 0, awake = 0, finish = 0;
    std::int64_t missedBy = 0;  /**< When the next cycle began without it. */
    std::uint32_t newXruns = 0; /**< Newly reported by the node. */
};

/** A cycle, and who did what in it. Valid as long as the cycle, and until the roster changes or the next is made. */
struct Account
{
    const Cycle* cycle = nullptr;
    bool isLate = false;             /**< The next cycle began before this one had ended: the clock is that one's. */
    std::int64_t previousSignal = 0; /**< The driver's, of the cycle before; 0: not known. */
    Part driver;
    std::vector<Part> followers;
};

/** Makes accounts, one for each cycle. Used by one thread at a time. */
class Accountant
{
public:
    /** @returns null when this cycle has been reported before */
    const Account* take (const Cycle& cycle, const Roster& roster);

    /** A node has gone; another one may get its id. */
    void forget (std::uint32_t id);

private:
    /** What the next cycle of a driver begins with. */
    struct Driver
    {
        std::int64_t signal = 0; // the last one
        std::uint64_t position = 0;
        bool tellsPrevious = true;
    };

    std::uint32_t countNewXruns (std::uint32_t id, std::uint32_t xruns);
    std::int64_t findPreviousSignal (Driver& driver) const;
    Part describe (const NodeCycle& follower) const;

    Account account;
    std::map<std::uint32_t, Driver> drivers;
    std::map<std::uint32_t, std::uint32_t> xruns; // as each node has reported them
};

} // namespace PipeWire
