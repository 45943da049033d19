#include "drivers/pipewire/ProfileReader.h"

#include <spa/param/profiler.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>

#include <cmath>
#include <limits>

namespace PipeWire
{

namespace
{
/** State of a node that has finished; those above it take no part. */
constexpr std::int32_t finishedState = 3;

// Of newer profilers: the clock of the follower that was told of last.
constexpr std::uint32_t followerClock = SPA_PROFILER_followerBlock + 1;

/* A time in nanoseconds; 0 when it is none. What is further away than 146 years is none: the others can be subtracted
   from each other. */
std::int64_t checkTime (std::int64_t time)
{
    return time > 0 && time < std::numeric_limits<std::int64_t>::max() / 2 ? time : 0;
}

/* Negative for playback; the smallest number has no positive one. */
std::uint64_t checkDelay (std::int64_t delay)
{
    return delay < 0 ? 0 - static_cast<std::uint64_t> (delay) : static_cast<std::uint64_t> (delay);
}

/** Reads the values of a struct, one after the other, for as long as they are what they should be. */
class StructReader
{
public:
    explicit StructReader (const spa_pod& pod)
    {
        spa_pod_parser_pod (&parser, &pod);
        isGood = spa_pod_parser_push_struct (&parser, &frame) >= 0;
    }

    bool read (std::int32_t& number) { return note (isGood ? spa_pod_parser_get_int (&parser, &number) : -1); }
    bool read (std::int64_t& number) { return note (isGood ? spa_pod_parser_get_long (&parser, &number) : -1); }
    bool read (double& number) { return note (isGood ? spa_pod_parser_get_double (&parser, &number) : -1); }
    bool read (spa_fraction& value) { return note (isGood ? spa_pod_parser_get_fraction (&parser, &value) : -1); }
    bool read (bool& value) { return note (isGood ? spa_pod_parser_get_bool (&parser, &value) : -1); }

    /** Passes over values of any type. */
    bool skip (int numValues = 1)
    {
        while (isGood && --numValues >= 0)
            isGood = spa_pod_parser_next (&parser) != nullptr;

        return isGood;
    }

private:
    bool note (int result) { return isGood = result >= 0; }

    spa_pod_parser parser {};
    spa_pod_frame frame {};
    bool isGood;
};

std::optional<NodeCycle> readNode (const spa_pod& pod)
{
    StructReader values (pod);
    NodeCycle node;
    std::int32_t id = 0, state = 0, xruns = 0;
    auto isAsynchronous = false;

    if (! values.read (id) || ! values.skip()) // its name
        return std::nullopt;

    for (auto* time : { &node.previousSignal, &node.signal, &node.awake, &node.finish })
    {
        if (! values.read (*time))
            return std::nullopt;

        *time = checkTime (*time);
    }

    if (! values.read (state) || state > finishedState)
        return std::nullopt;

    node.id = static_cast<std::uint32_t> (id);
    node.isFinished = state == finishedState;

    // A latency comes between.
    if (values.skip() && values.read (xruns))
        node.xruns = static_cast<std::uint32_t> (xruns);

    if (values.read (isAsynchronous))
        node.isAsynchronous = isAsynchronous;

    return node;
}

void readInfo (const spa_pod& pod, Cycle& cycle)
{
    StructReader values (pod);
    std::int32_t xruns = 0;

    if (values.skip (4) && values.read (xruns)) // a counter, and loads
        cycle.xruns = static_cast<std::uint32_t> (xruns);
}

bool readClock (const spa_pod& pod, Cycle& cycle)
{
    StructReader values (pod);
    spa_fraction rate {};
    std::int64_t position = 0, duration = 0, delay = 0;
    double difference = 1;

    // Flags, a number and a name come first.
    if (! values.skip (3) || ! values.read (cycle.clockTime) || ! values.read (rate) || ! values.read (position)
        || ! values.read (duration) || ! values.read (delay) || ! values.read (difference))
        return false;

    cycle.clockTime = checkTime (cycle.clockTime);
    cycle.rate = rate.num == 1 ? rate.denom : 0;
    cycle.position = static_cast<std::uint64_t> (position);
    cycle.duration = duration > 0 && duration <= INT32_MAX ? static_cast<std::uint32_t> (duration) : 0;
    cycle.delay = checkDelay (delay);
    cycle.rateDifference = std::isfinite (difference) ? difference : 1;
    return true;
}

void readFollowerClock (const spa_pod& pod, NodeCycle& follower)
{
    StructReader values (pod);
    std::int64_t delay = 0;

    if (values.skip (6) && values.read (delay)) // as in readClock(), without the flags
        follower.delay = checkDelay (delay);
}

std::optional<Cycle> readCycle (const spa_pod_object& object)
{
    constexpr std::size_t usualNumber = 8; // of followers
    Cycle cycle;
    cycle.followers.reserve (usualNumber);
    auto hasClock = false;
    auto wasFollowerRead = false;
    const spa_pod_prop* property = nullptr;

    SPA_POD_OBJECT_FOREACH (&object, property)
    {
        const auto& value = property->value;

        switch (property->key)
        {
            case SPA_PROFILER_info:
                readInfo (value, cycle);
                break;

            case SPA_PROFILER_clock:
                hasClock = readClock (value, cycle);
                break;

            case SPA_PROFILER_driverBlock:
                cycle.driver = readNode (value).value_or (NodeCycle());
                break;

            case SPA_PROFILER_followerBlock:
                if (const auto follower = readNode (value); (wasFollowerRead = follower.has_value()))
                    cycle.followers.push_back (*follower);

                break;

            case followerClock:
                if (wasFollowerRead)
                    readFollowerClock (value, cycle.followers.back());

                break;

            default:
                break;
        }
    }

    return hasClock && cycle.driver.signal > 0 ? std::optional (std::move (cycle)) : std::nullopt;
}
} // namespace

std::vector<Cycle> readProfile (std::span<const std::uint8_t> message)
{
    std::vector<Cycle> cycles;
    const auto* pod = reinterpret_cast<const spa_pod*> (message.data());

    if (message.size() < sizeof (spa_pod) || SPA_POD_SIZE (pod) > message.size() || ! spa_pod_is_struct (pod))
        return cycles;

    const auto* body = SPA_POD_BODY_CONST (pod);
    const auto* object = static_cast<const spa_pod*> (body);

    for (; spa_pod_is_inside (body, pod->size, object); object = static_cast<const spa_pod*> (spa_pod_next (object)))
        if (spa_pod_is_object_type (object, SPA_TYPE_OBJECT_Profiler))
            if (auto cycle = readCycle (*reinterpret_cast<const spa_pod_object*> (object)))
                cycles.push_back (std::move (*cycle));

    return cycles;
}

} // namespace PipeWire
