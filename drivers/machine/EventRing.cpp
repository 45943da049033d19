#include "drivers/machine/EventRing.h"

namespace Machine
{

void EventRing::restartWithLimit (std::uint32_t newLimit)
{
    newest.length = 0;
    kept.length = 0;
    limit = newLimit < maximumLength ? newLimit : maximumLength;
}

void EventRing::makeRoom()
{
    while (getLength() == limit)
    {
        const auto oldest = newest.take();

        if (! oldest.isKept || limit / 2 == 0)
            continue;

        if (kept.length == limit / 2)
            kept.take();

        kept.add (oldest);
    }
}

void EventRing::append (Entry entry)
{
    // What is older than all of a full log would be the first to go.
    if (limit == 0 || (getLength() == limit && entry.time < newest.at (0).time))
        return;

    makeRoom();

    if (kept.length > 0 && entry.time < kept.at (kept.length - 1).time)
        return;

    entry.isKept = entry.time >= keptFrom && entry.time <= keptUntil;
    newest.add (entry);

    auto place = newest.length - 1;

    for (; place > 0 && newest.at (place - 1).time > entry.time; --place)
        newest.at (place) = newest.at (place - 1);

    newest.at (place) = entry;
}

void EventRing::markXrun (std::int64_t time, std::int64_t ticksPerSecond)
{
    keptFrom = time - 2 * ticksPerSecond;
    keptUntil = time + ticksPerSecond;

    // What precedes an entry that is kept is kept already, as far as it is to be.
    for (auto i = newest.length; i > 0 && newest.at (i - 1).time >= keptFrom && ! newest.at (i - 1).isKept; --i)
        newest.at (i - 1).isKept = newest.at (i - 1).time <= keptUntil;
}

//==============================================================================
DriverProtocol::EventLogEntry EventReader::read (const EventRing& log, std::uint32_t index, std::int64_t frequency)
{
    if (index == 0)
        for (length = 0; length < log.getLength(); ++length)
            entries[length] = log.get (length);

    DriverProtocol::EventLogEntry entry {};
    entry.type = DriverProtocol::noSuchEntry;

    if (index < length)
    {
        entry.timestamp = entries[index].time;
        entry.frequency = frequency;
        entry.type = static_cast<std::uint32_t> (entries[index].type);
        entry.param = entries[index].parameter;
        entry.auxValue = entries[index].auxValue;
    }

    return entry;
}

} // namespace Machine
