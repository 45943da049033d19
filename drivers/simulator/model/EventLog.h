#pragma once

#include "protocol/DriverProtocol.h"
#include "protocol/EventType.h"

#include <cstdint>

namespace Simulation
{

/** The event log of one device: a ring that keeps the newest entries; index 0 is the oldest that it still holds.

    A reader fetches entry after entry while the stream goes on. So that it sees one state of the log and not
    a moving one, reading index 0 holds the log still: events that happen meanwhile are not logged. The hold
    ends when the reader reaches the end, or has not read for a second. With two readers at once, the
    first that reaches the end lets the log go for both.

    Used by one thread at a time.
*/
class EventLog
{
public:
    /** Readers ask for this many entries at most. */
    static constexpr std::uint32_t maximumLength = DriverProtocol::MaxEventsPerDevice;

    struct Entry
    {
        std::int64_t time; /**< Ticks. */
        std::uint32_t param;
        DriverProtocol::EventType type;
        std::int8_t auxValue;
    };

    /** Empties the log, takes any limit off and lets a reader's hold go.

        @param newHoldTicks  ticks after which a silent reader's hold ends
    */
    void reset (std::int64_t newHoldTicks);

    /** Drops every entry; from now on the log keeps at most this many (up to maximumLength). */
    void restartWithLimit (std::uint32_t newLimit);

    /** Adds an entry, in place of the oldest when the log is full; ignored while a reader holds the log.

        Entries are kept in ascending order of time: a time not after the last entry's is moved behind it.
    */
    void append (Entry entry);

    /** Fetches one entry on behalf of a reader; returns false when there is none at this index.

        @param now  the time of the reading, ticks
    */
    bool read (std::uint32_t index, std::int64_t now, Entry& entry);

    std::uint32_t getLength() const { return length; }

private:
    Entry entries[maximumLength]; // only the length entries from oldest on were ever written
    std::uint32_t oldest = 0;
    std::uint32_t length = 0;
    std::uint32_t limit = maximumLength;
    bool isHeld = false;
    std::int64_t lastRead = 0;
    std::int64_t lastTime = INT64_MIN;
    std::int64_t holdTicks = 0;
};

} // namespace Simulation
