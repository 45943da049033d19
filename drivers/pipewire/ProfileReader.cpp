#include "drivers/pipewire/ProfileReader.h"

#include <spa/param/profiler.h>
#include <spa/utils/type.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <type_traits>

namespace PipeWire
{

namespace
{
using Bytes = std::span<const std::uint8_t>;

/** State of a node that has finished; those above it take no part. */
constexpr std::int32_t finishedState = 3;

// Times further away than this (146 years) are not times; the others can be subtracted from each other.
constexpr auto maximumTime = std::numeric_limits<std::int64_t>::max() / 2;

/** One value, its type and its bytes. */
struct Pod
{
    std::uint32_t type = SPA_TYPE_None;
    Bytes body;
};

template <typename Number>
std::optional<Number> readNumber (Bytes bytes)
{
    static_assert (std::is_trivially_copyable_v<Number>);
    Number number;

    if (bytes.size() < sizeof (number))
        return std::nullopt;

    std::memcpy (&number, bytes.data(), sizeof (number));
    return number;
}

/** Takes pods, one after the other, from bytes that may be anything. */
class PodReader
{
public:
    explicit PodReader (Bytes newBytes) : bytes (newBytes) {}

    /** The next pod; one of no type at the end, and from the first on that is not whole. */
    Pod next()
    {
        constexpr std::size_t headerSize = 8;
        const auto size = readNumber<std::uint32_t> (bytes);
        const auto type = readNumber<std::uint32_t> (bytes.size() < headerSize ? Bytes() : bytes.subspan (4));

        if (! size || ! type || *size > bytes.size() - headerSize)
        {
            bytes = {};
            return {};
        }

        const Pod pod { *type, bytes.subspan (headerSize, *size) };
        skip (headerSize + (std::size_t { *size } + 7) / 8 * 8);
        return pod;
    }

    /** The number that comes next; nothing when it is not of the type that it should be. */
    template <typename Number>
    std::optional<Number> next (std::uint32_t type)
    {
        const auto pod = next();
        return pod.type == type ? readNumber<Number> (pod.body) : std::nullopt;
    }

    std::optional<std::int32_t> nextInt() { return next<std::int32_t> (SPA_TYPE_Int); }
    std::optional<std::int64_t> nextLong() { return next<std::int64_t> (SPA_TYPE_Long); }

    /** A time in nanoseconds; 0 when it is none. */
    std::int64_t nextTime()
    {
        const auto time = nextLong().value_or (0);
        return time > 0 && time < maximumTime ? time : 0;
    }

    void skip (std::size_t size) { bytes = bytes.subspan (std::min (size, bytes.size())); }
    Bytes rest() const { return bytes; }

private:
    Bytes bytes;
};

std::optional<NodeCycle> readNode (Bytes body)
{
    PodReader fields (body);
    NodeCycle node;
    const auto id = fields.nextInt();
    fields.next(); // its name
    node.previousSignal = fields.nextTime();
    node.signal = fields.nextTime();
    node.awake = fields.nextTime();
    node.finish = fields.nextTime();
    const auto state = fields.nextInt();

    if (! id || ! state)
        return std::nullopt;

    node.id = static_cast<std::uint32_t> (*id);
    node.isFinished = *state >= finishedState;
    return node;
}

void readInfo (Bytes body, Cycle& cycle)
{
    PodReader fields (body);

    for (int i = 0; i < 4; ++i)
        fields.next(); // a counter, and loads

    cycle.hardwareXruns = static_cast<std::uint32_t> (fields.nextInt().value_or (0));
}

bool readClock (Bytes body, Cycle& cycle)
{
    struct Fraction
    {
        std::uint32_t numerator, denominator;
    };

    PodReader fields (body);

    for (int i = 0; i < 4; ++i)
        fields.next(); // flags, id, name, time

    const auto rate = fields.next<Fraction> (SPA_TYPE_Fraction);
    const auto position = fields.nextLong();
    const auto duration = fields.nextLong();
    const auto delay = fields.nextLong();
    const auto difference = fields.next<double> (SPA_TYPE_Double);

    if (! rate || ! position || ! duration || ! delay || ! difference)
        return false;

    cycle.rate = rate->numerator == 1 ? rate->denominator : 0;
    cycle.position = static_cast<std::uint64_t> (*position);
    cycle.duration = *duration > 0 && *duration <= INT32_MAX ? static_cast<std::uint32_t> (*duration) : 0;
    // Negative for playback; the smallest number has no positive one.
    cycle.delay = *delay < 0 ? 0 - static_cast<std::uint64_t> (*delay) : static_cast<std::uint64_t> (*delay);
    cycle.rateDifference = std::isfinite (*difference) ? *difference : 1;
    return true;
}

std::optional<Cycle> readCycle (Bytes object)
{
    constexpr std::size_t objectHeaderSize = 8;   // type and id
    constexpr std::size_t propertyHeaderSize = 8; // key and flags

    PodReader properties (object);
    properties.skip (objectHeaderSize);

    Cycle cycle;
    auto hasClock = false;
    auto hasDriver = false;

    while (properties.rest().size() > propertyHeaderSize)
    {
        const auto key = readNumber<std::uint32_t> (properties.rest()).value_or (0);
        properties.skip (propertyHeaderSize);
        const auto value = properties.next();

        if (value.type != SPA_TYPE_Struct)
            continue;

        if (key == SPA_PROFILER_info)
            readInfo (value.body, cycle);
        else if (key == SPA_PROFILER_clock)
            hasClock = readClock (value.body, cycle);
        else if (key == SPA_PROFILER_driverBlock)
        {
            const auto driver = readNode (value.body);
            cycle.driver = driver.value_or (NodeCycle());
            hasDriver = driver && driver->signal > 0;
        }
        else if (key == SPA_PROFILER_followerBlock)
        {
            if (const auto follower = readNode (value.body))
                cycle.followers.push_back (*follower);
        }
    }

    return hasClock && hasDriver ? std::optional (cycle) : std::nullopt;
}
} // namespace

std::vector<Cycle> readProfile (std::span<const std::uint8_t> message)
{
    std::vector<Cycle> cycles;
    const auto outer = PodReader (message).next();

    if (outer.type != SPA_TYPE_Struct)
        return cycles;

    PodReader objects (outer.body);

    for (auto pod = objects.next(); pod.type != SPA_TYPE_None; pod = objects.next())
    {
        if (pod.type != SPA_TYPE_Object
            || readNumber<std::uint32_t> (pod.body) != std::uint32_t { SPA_TYPE_OBJECT_Profiler })
            continue;

        if (auto cycle = readCycle (pod.body))
            cycles.push_back (std::move (*cycle));
    }

    return cycles;
}

} // namespace PipeWire
