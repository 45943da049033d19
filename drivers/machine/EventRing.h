#pragma once

#include "protocol/DriverProtocol.h"
#include "protocol/EventType.h"

#include <cstdint>

namespace Machine
{

/** The event log of a device, in ascending order of time: the newest events, and those around the last xruns.

    An xrun that was marked keeps the two seconds before it and the second after it for as long as they fit into half of
    the log; whatever else is old goes first.

    No heap and no library: it also goes into a kernel driver. An object is large: keep it off the stack. Used by one
    thread at a time.
*/
class EventRing
{
public:
    /** Readers ask for this many entries at most. */
    static constexpr std::uint32_t maximumLength = DriverProtocol::MaxEventsPerDevice;

    struct Entry
    {
        std::int64_t time; /**< Ticks. */
        std::uint32_t parameter;
        DriverProtocol::EventType type;
        std::int8_t auxValue;
        bool isKept = false; /**< The ring's own. */
    };

    /** Drops every entry; from now on the log holds at most this many (up to maximumLength). */
    void restartWithLimit (std::uint32_t newLimit);

    /** Adds an entry where its time belongs, behind those of the same time; when the log is full, an old one goes. */
    void append (Entry entry);

    /** Keeps what is around an xrun; the last one that was marked was not later. */
    void markXrun (std::int64_t time, std::int64_t ticksPerSecond);

    std::uint32_t getLength() const { return kept.length + newest.length; }

    /** @param index  from 0, the oldest, up to the length */
    const Entry& get (std::uint32_t index) const
    {
        return index < kept.length ? kept.at (index) : newest.at (index - kept.length);
    }

private:
    template <std::uint32_t capacity>
    struct Queue
    {
        Entry& at (std::uint32_t index) { return entries[(first + index) % capacity]; }
        const Entry& at (std::uint32_t index) const { return entries[(first + index) % capacity]; }

        void add (const Entry& entry) { at (length++) = entry; }

        const Entry& take()
        {
            const auto& entry = at (0);
            first = (first + 1) % capacity;
            --length;
            return entry;
        }

        Entry entries[capacity]; // only the length entries from first on were ever written
        std::uint32_t first = 0, length = 0;
    };

    void makeRoom();

    Queue<maximumLength> newest;
    Queue<maximumLength / 2> kept; // all older than the newest ones
    std::uint32_t limit = maximumLength;
    std::int64_t keptFrom = 1, keptUntil = 0; // around the last xrun; before there was one, nothing
};

/** What one reader sees of a log: it stands still, as it was when the reader began.

    As large, and as free of heap and libraries, as the log itself.
*/
class EventReader
{
public:
    /** Answers one ReadEventEntry; the index 0 begins anew.

        @param frequency  ticks per second of the log's times
        @returns          an entry of type noSuchEntry when there is none at this index
    */
    DriverProtocol::EventLogEntry read (const EventRing& log, std::uint32_t index, std::int64_t frequency);

private:
    EventRing::Entry entries[EventRing::maximumLength];
    std::uint32_t length = 0;
};

} // namespace Machine
