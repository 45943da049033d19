#include "drivers/pipewire/ProfileReader.h"

#include <spa/param/profiler.h>
#include <spa/pod/iter.h>

#include <cmath>
#include <limits>

namespace PipeWire
{

namespace
{
/** State of a node that has finished; those above it take no part. */
constexpr std::int32_t finishedState = 3;

// Of newer profilers: the clock of the follower before it.
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
        : size (spa_pod_is_struct (&pod) ? SPA_POD_BODY_SIZE (&pod) : 0),
          body (SPA_POD_BODY_CONST (&pod)),
          next (static_cast<const spa_pod*> (body))
    {
    }

    bool read (std::int32_t& number) { return take (spa_pod_get_int, number); }
    bool read (std::int64_t& number) { return take (spa_pod_get_long, number); }
    bool read (double& number) { return take (spa_pod_get_double, number); }
    bool read (bool& value) { return take (spa_pod_get_bool, value); }

    bool read (spa_fraction& value)
    {
        // The library would print a complaint about a wrong one.
        const auto get = [] (const spa_pod* pod, spa_fraction* fraction)
        { return spa_pod_is_fraction (pod) ? spa_pod_get_fraction (pod, fraction) : -1; };
        return take (get, value);
    }

    /** Passes over values of any type. */
    bool skip (int numValues = 1)
    {
        for (; numValues > 0 && isThere(); --numValues)
            next = static_cast<const spa_pod*> (spa_pod_next (next));

        return numValues == 0;
    }

private:
    bool isThere() const { return spa_pod_is_inside (body, size, next); }

    template <typename Get, typename Value>
    bool take (Get get, Value& value)
    {
        // Nothing is read behind a value that is missing or of another type.
        if (isThere() && get (next, &value) >= 0)
            return skip();

        size = 0;
        return false;
    }

    std::uint32_t size;
    const void* body;
    const spa_pod* next;
};

bool readNode (const spa_pod& pod, NodeCycle& node)
{
    StructReader values (pod);
    std::int32_t id = 0, state = 0, xruns = 0;
    auto isAsynchronous = false;

    if (! values.read (id) || ! values.skip()) // its name
        return false;

    for (auto* time : { &node.previousSignal, &node.signal, &node.awake, &node.finish })
    {
        if (! values.read (*time))
            return false;

        *time = checkTime (*time);
    }

    if (! values.read (state) || state > finishedState)
        return false;

    node.id = static_cast<std::uint32_t> (id);
    node.isFinished = state == finishedState;

    // A latency comes between.
    if (values.skip() && values.read (xruns))
        node.xruns = static_cast<std::uint32_t> (xruns);

    if (values.read (isAsynchronous))
        node.isAsynchronous = isAsynchronous;

    return true;
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

bool readCycle (const spa_pod_object& object, Cycle& cycle)
{
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
                if (! readNode (value, cycle.driver))
                    cycle.driver = {};

                break;

            case SPA_PROFILER_followerBlock:
                wasFollowerRead = readNode (value, cycle.followers.emplace_back());

                if (! wasFollowerRead)
                    cycle.followers.pop_back();

                break;

            case followerClock:
                if (wasFollowerRead)
                    readFollowerClock (value, cycle.followers.back());

                break;

            default:
                break;
        }
    }

    return hasClock && cycle.driver.signal > 0;
}
} // namespace

void readProfile (std::span<const std::uint8_t> message, std::vector<Cycle>& cycles)
{
    const auto* pod = reinterpret_cast<const spa_pod*> (message.data());

    if (message.size() < sizeof (spa_pod) || SPA_POD_SIZE (pod) > message.size() || ! spa_pod_is_struct (pod))
        return;

    const auto* body = SPA_POD_BODY_CONST (pod);
    const auto* object = static_cast<const spa_pod*> (body);

    for (; spa_pod_is_inside (body, pod->size, object); object = static_cast<const spa_pod*> (spa_pod_next (object)))
        if (spa_pod_is_object_type (object, SPA_TYPE_OBJECT_Profiler)
            && ! readCycle (*reinterpret_cast<const spa_pod_object*> (object), cycles.emplace_back()))
            cycles.pop_back();
}

} // namespace PipeWire
