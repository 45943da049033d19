#include "drivers/pipewire/Roster.h"

#include <algorithm>
#include <utility>

namespace PipeWire
{

namespace
{
// The profiler reports a cycle within a second.
constexpr std::int64_t rememberedFor = 5'000'000'000;
} // namespace

void Roster::addNode (std::uint32_t id, Node node)
{
    auto& stays = nodes[id];

    if (stays.empty() || stays.back().end != stillThere)
        stays.emplace_back();

    stays.back().node = std::move (node);
}

void Roster::addLink (std::uint32_t id, std::uint32_t output, std::uint32_t input)
{
    links.push_back ({ id, output, input });
}

void Roster::remove (std::uint32_t id, std::int64_t now)
{
    for (auto& link : links)
        if (link.id == id)
            link.end = std::min (link.end, now);

    if (const auto found = nodes.find (id); found != nodes.end() && ! found->second.empty())
        found->second.back().end = std::min (found->second.back().end, now);

    const auto isForgotten = [now] (const auto& stay) { return stay.end < now - rememberedFor; };
    std::erase_if (links, isForgotten);

    for (auto& [key, stays] : nodes)
        std::erase_if (stays, isForgotten);
}

const Node* Roster::find (std::uint32_t id, std::int64_t time) const
{
    if (const auto found = nodes.find (id); found != nodes.end())
        for (const auto& stay : found->second)
            if (time < stay.end)
                return &stay.node;

    return nullptr;
}

bool Roster::isConnected (std::uint32_t output, std::uint32_t input, std::int64_t time) const
{
    std::vector<std::uint32_t> reached { output };

    for (std::size_t i = 0; i < reached.size(); ++i)
    {
        for (const auto& link : links)
        {
            if (link.output != reached[i] || time >= link.end)
                continue;

            if (link.input == input)
                return true;

            if (std::ranges::find (reached, link.input) == reached.end())
                reached.push_back (link.input);
        }
    }

    return false;
}

} // namespace PipeWire
