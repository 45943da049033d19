#pragma once

#include "drivers/pipewire/DeviceFigures.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace PipeWire
{

/** Says of each xrun who was late, and for how long: that shows when the client is back.

    Used by one thread at a time.
*/
class XrunJournal
{
public:
    /** Writes an xrun down. */
    void add (const std::string& device, const Xrun& xrun);

    /** Looks who has come back in a cycle. */
    void follow (const Account& account);

    /** Takes the lines about all xruns of which everything is known, or which nobody waits for any longer.

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
