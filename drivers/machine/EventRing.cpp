#include "drivers/machine/EventRing.h"

#include <algorithm>

namespace Machine
{

void EventRing::append (const Entry& entry)
{
    if (entries.size() < maximumLength)
    {
        entries.push_back (entry);
        return;
    }

    entries[oldest] = entry;
    oldest = (oldest + 1) % maximumLength;
}

std::optional<EventRing::Entry> EventRing::read (std::uint64_t reader, std::uint32_t index)
{
    if (index == 0)
    {
        auto& picture = pictures[reader];
        picture = entries;
        std::rotate (picture.begin(), picture.begin() + static_cast<std::ptrdiff_t> (oldest), picture.end());
    }

    const auto picture = pictures.find (reader);

    if (picture == pictures.end())
        return std::nullopt;

    std::optional<Entry> entry;

    if (index < picture->second.size())
        entry = picture->second[index];

    // Nobody asks beyond the first index without an entry, nor beyond the last that there can be.
    if (! entry || index == maximumLength - 1)
        pictures.erase (picture);

    return entry;
}

} // namespace Machine
