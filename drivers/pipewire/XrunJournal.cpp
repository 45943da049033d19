#include "drivers/pipewire/XrunJournal.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

namespace PipeWire
{

namespace
{
constexpr std::int64_t second = 1'000'000'000;

// Longer than the profiler takes to report a cycle.
constexpr auto longestWait = 2 * second;
} // namespace

void XrunJournal::add (const std::string& device, const Xrun& xrun)
{
    Entry entry { device, xrun.isOverflow, xrun.time, {} };

    for (const auto& part : xrun.late)
        entry.clients.push_back ({ part.cycle->id, part.node->process, part.node->name, part.missedBy });

    entries.push_back (std::move (entry));
}

void XrunJournal::follow (const Account& account)
{
    for (auto& entry : entries)
        for (auto& client : entry.clients)
            for (const auto& part : account.followers)
                if (client.back == 0 && part.cycle->id == client.id && part.awake >= client.missedBy)
                    client.back = part.awake;
}

std::vector<std::string> XrunJournal::take (std::int64_t now, std::int64_t wallTime, bool waits)
{
    std::vector<std::string> lines;

    const auto isReady = [&] (const Entry& entry)
    {
        return ! waits || now - entry.time > longestWait
               || std::ranges::all_of (entry.clients, [] (const Client& client) { return client.back > 0; });
    };

    // One after the other, so that the lines are in the order of time.
    for (; ! entries.empty() && isReady (entries.front()); entries.pop_front())
        lines.push_back (describe (entries.front(), now, wallTime));

    return lines;
}

std::string XrunJournal::describe (const Entry& entry, std::int64_t now, std::int64_t wallTime)
{
    const auto time = wallTime - (now - entry.time);
    const auto seconds = static_cast<std::time_t> (time / second);
    std::tm local {};
    char text[64];
    ::localtime_r (&seconds, &local);
    const auto length = std::strftime (text, sizeof (text), "%F %T", &local);
    std::snprintf (text + length, sizeof (text) - length, ".%03d ", static_cast<int> (time % second / 1'000'000));
    auto line = text + entry.device + (entry.isOverflow ? ": overflow" : ": underrun");

    for (const auto& client : entry.clients)
    {
        const auto isBack = client.back > 0;
        const auto lateness = static_cast<double> ((isBack ? client.back : now) - client.missedBy) / 1e6;
        line += ", " + (client.name.empty() ? "node " + std::to_string (client.id) : client.name);

        if (client.process > 0)
            line += " (process " + std::to_string (client.process) + ")";

        std::snprintf (text, sizeof (text), " was %s%.1f ms late", isBack ? "" : "more than ", lateness);
        line += text;
    }

    return entry.clients.empty() ? line + ", which the hardware told of" : line;
}

} // namespace PipeWire
