#pragma once

#include "protocol/DriverProtocol.h"
#include "protocol/EventType.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace Machine
{

/** The newest events of a device, for readers that fetch them one by one while more come in.

    Every reader gets a picture of the log as it was when it asked for index 0, so what it reads stands still. Used by
    one thread at a time.
*/
class EventRing
{
public:
    /** Readers ask for this many entries at most; older ones are dropped. */
    static constexpr std::size_t maximumLength = DriverProtocol::MaxEventsPerDevice;

    struct Entry
    {
        std::int64_t time; /**< Ticks of the machine folder's counter. */
        std::uint32_t parameter;
        DriverProtocol::EventType type;
        std::int8_t auxValue;
    };

    void append (const Entry& entry);

    /** Fetches an entry; nothing when there is none at this index, or the reader has no picture to fetch it from.

        @param reader  tells one reader from another
        @param index   from 0, the oldest, on; 0 takes a new picture, the last one lets it go
    */
    std::optional<Entry> read (std::uint64_t reader, std::uint32_t index);

    /** Lets go of the picture of a reader that has left. */
    void forget (std::uint64_t reader) { pictures.erase (reader); }

    std::size_t getLength() const { return entries.size(); }

private:
    std::vector<Entry> entries;
    std::size_t oldest = 0;
    std::map<std::uint64_t, std::vector<Entry>> pictures;
};

} // namespace Machine
