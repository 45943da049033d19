#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace PipeWire
{

/** What a node does, as far as it matters here. */
enum class NodeKind : std::uint8_t
{
    client, /**< Any node that is no device's: streams, filters and what connects them. */
    sink,
    source,
    duplex
};

/** What is known of a node. */
struct Node
{
    NodeKind kind = NodeKind::client;
    std::uint32_t interface = 0; /**< Number of the device interface that it belongs to; 0: to none. */
    std::string name;
    std::uint32_t process = 0; /**< Process id of a client; 0: not known. */
};

/** The nodes in the graph, and those of a moment ago: reports come late, and ids are used again at once.

    Times are nanoseconds of CLOCK_MONOTONIC. Used by one thread at a time.
*/
class Roster
{
public:
    /** A node has appeared, or more is known about it. */
    void addNode (std::uint32_t id, Node node);

    /** A link from one node to another has appeared. */
    void addLink (std::uint32_t id, std::uint32_t output, std::uint32_t input);

    /** A node or link of this id, if there is one, has gone. */
    void remove (std::uint32_t id, std::int64_t now);

    /** The node that had the id at a time; null when that is not known. Valid until the next change. */
    const Node* find (std::uint32_t id, std::int64_t time) const;

    /** Whether a node's audio reached another one at a time, directly or through others. */
    bool isConnected (std::uint32_t output, std::uint32_t input, std::int64_t time) const;

private:
    static constexpr auto stillThere = std::numeric_limits<std::int64_t>::max();

    struct NodeStay
    {
        Node node;
        std::int64_t end = stillThere;
    };

    struct LinkStay
    {
        std::uint32_t id, output, input;
        std::int64_t end = stillThere;
    };

    std::map<std::uint32_t, std::vector<NodeStay>> nodes; // of each id in the order in which they had it
    std::vector<LinkStay> links;
};

} // namespace PipeWire
