#pragma once

#include "drivers/pipewire/DeviceFigures.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace PipeWire
{

/** Says who was late at each xrun, and for how long, which shows when the client is back.

    Used by one thread at a time.
*/
class XrunJournal
{
public:
    /** Records an xrun. */
    void add (const std::string& device, const Xrun& xrun);

    /** Notes which clients are back in a cycle. */
    void follow (const Account& account);

    /** Returns the lines about all xruns that are complete or have waited long enough, and forgets them.

        @param now       nanoseconds of CLOCK_MONOTONIC
        @param wallTime  the same moment in nanoseconds since 1970
        @param waits     false: for none of them
    */
    std::vector<std::string> take (std::int64_t now, std::int64_t wallTime, bool waits = true);

private:
    struct Client
    {
        std::uint32_t id, process;
        std::string name;
        std::int64_t missedBy;
        std::int64_t back = 0; // 0: not yet
    };

    struct Entry
    {
        std::string device;
        bool isOverflow;
        std::int64_t time;
        std::vector<Client> clients;
    };

    static std::string describe (const Entry& entry, std::int64_t now, std::int64_t wallTime);

    std::list<Entry> entries;
};

} // namespace PipeWire
