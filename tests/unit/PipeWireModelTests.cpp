#include "drivers/machine/CheckedRequest.h"
#include "drivers/pipewire/DeviceFigures.h"
#include "drivers/pipewire/Options.h"
#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/XrunJournal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <sstream>
#include <tuple>
#include <utility>

namespace
{
using namespace PipeWire;
using DriverProtocol::EventType;

//==============================================================================
/** The profiler writes pods, which are whole words of eight bytes; the first word has type and size. */
using Words = std::vector<std::uint64_t>;

constexpr std::uint64_t makeHeader (std::uint64_t type, std::uint64_t size)
{
    return type << 32 | size;
}

constexpr auto integer = makeHeader (4, 4), number = makeHeader (5, 8), real = makeHeader (6, 4),
               longReal = makeHeader (7, 8), name = makeHeader (8, 2), fraction = makeHeader (11, 8);
constexpr std::uint64_t structType = 14, objectType = 15;

void addPod (Words& words, std::uint64_t type, const Words& body)
{
    words.push_back (makeHeader (type, body.size() * sizeof (body[0])));
    words.insert (words.end(), body.begin(), body.end());
}

void addCycle (Words& words, std::uint64_t duration, std::uint64_t driverKey = 0x10003)
{
    constexpr auto rate = makeHeader (44100, 1), never = UINT64_MAX, smallest = std::uint64_t { 1 } << 63;
    const auto difference = std::bit_cast<std::uint64_t> (1.5);
    Words object { 0x4000A };

    const auto addProperty = [&object] (std::uint64_t key, const Words& body)
    {
        object.push_back (key);
        addPod (object, structType, body);
    };

    addProperty (0x10001, { number, 7, real, 0, real, 0, real, 0, integer, 3 });

    // Flags, id, name and time; then the stream's rate, position, duration and delay.
    Words clock { integer, 0, integer, 35, name, 'c', number, 1000, fraction, rate, number, 4096 };
    clock.insert (clock.end(), { number, duration, number, smallest, longReal, difference });
    addProperty (0x10002, clock);
    addProperty (driverKey, { integer, 35, name, 'd', number, 100, number, 200, number, 300, number, 400, integer, 3 });
    addProperty (0x20001, { integer, 45, name, 'f', number, 0, number, 210, number, 220, number, never, integer, 1 });

    // Newer profilers add xruns, asynchronous work, and a clock of the follower's own.
    Words follower { integer, 46, name, 'f', number, 0, number, 210, number, 220, number, 230, integer, 3 };
    follower.insert (follower.end(), { fraction, rate, integer, 9, makeHeader (2, 4), 1 });
    addProperty (0x20001, follower);
    addProperty (0x20002,
                 { integer, 5, name, 'c', number, 7, fraction, rate, number, 1, number, 2, number, never - 4 });
    addProperty (0x20001,
                 { integer, 47, name, 'f', number, 0, number, 1, number, 1, number, 1, integer, 4 }); // inactive
    addProperty (0x20002, { integer, 5, name, 'c', number, 7, fraction, rate, number, 1, number, 2, number, 77 });
    addPod (words, objectType, object);
}

/** Incomplete messages are the fuzz target's business. */
TEST (PipeWireProfileTests, cyclesAreReadAsTheProfilerWritesThem)
{
    Words objects { integer, 1 }, message; // an object of another kind is skipped
    addCycle (objects, INT64_MAX);
    addCycle (objects, 1024);
    addCycle (objects, 1024, 0x20002); // without a driver
    addPod (message, structType, objects);
    const auto bytes = std::as_bytes (std::span (message));
    std::vector<Cycle> cycles;
    readProfile ({ reinterpret_cast<const std::uint8_t*> (bytes.data()), bytes.size() }, cycles);
    ASSERT_EQ (cycles.size(), 2u);
    EXPECT_EQ (cycles[0].duration, 0u) << "not a duration";

    const auto& cycle = cycles[1];
    const Words told { cycle.xruns, cycle.rate, cycle.position, cycle.duration, cycle.delay };
    EXPECT_EQ (told, (Words { 3, 44100, 4096, 1024, std::uint64_t { 1 } << 63 })) << "no delay is negative";
    EXPECT_EQ (cycle.clockTime, 1000);
    EXPECT_EQ (cycle.rateDifference, 1.5);
    ASSERT_EQ (cycle.followers.size(), 2u);

    const auto describe = [] (const NodeCycle& node) {
        return std::array { std::int64_t { node.id }, node.previousSignal, node.signal, node.awake, node.finish };
    };

    EXPECT_EQ (describe (cycle.driver), (std::array<std::int64_t, 5> { 35, 100, 200, 300, 400 }));
    EXPECT_EQ (describe (cycle.followers[0]), (std::array<std::int64_t, 5> { 45, 0, 210, 220, 0 })) << "-1 is no time";
    EXPECT_TRUE (cycle.driver.isFinished && ! cycle.followers[0].isFinished);
    EXPECT_FALSE (cycle.followers[0].xruns || cycle.followers[0].isAsynchronous || cycle.followers[0].delay);
    EXPECT_TRUE (cycle.followers[1].xruns == 9u && cycle.followers[1].isAsynchronous == true);
    EXPECT_EQ (cycle.followers[1].delay, 5u) << "the clock of one that takes no part is nobody's";
}

//==============================================================================
constexpr std::uint32_t sink = 35, source = 36, player = 45, recorder = 46, filter = 47, foreign = 50;

// Ids of devices.
constexpr std::uint32_t ours = 1, theirs = 2, playersOwn = 3;

// A millisecond, in the nanoseconds of cycles and in the ticks of figures and events.
constexpr std::int64_t millisecond = 1'000'000, ticks = 10'000;

double inMs (std::int64_t numTicks)
{
    return static_cast<double> (numTicks) / ticks;
}

/** A device with a sink and a source, its clients, and another device's sink, in cycles that the test describes with
    times in milliseconds.
*/
class PipeWireFiguresTests : public testing::Test
{
protected:
    using Counts = std::vector<std::uint32_t>;
    using Event = std::tuple<EventType, std::int64_t, std::uint32_t, int>; // the time is in milliseconds

    PipeWireFiguresTests()
    {
        roster.addNode (sink, { NodeKind::sink, ours, "sink", 0 });
        roster.addNode (source, { NodeKind::source, ours, "source", 0 });
        roster.addNode (foreign, { NodeKind::sink, theirs, "foreign", 0 });
        roster.addNode (player, { NodeKind::client, playersOwn, "player", 4711 });
        roster.addNode (recorder, { NodeKind::client, 0, "", 0 });
        roster.addLink (101, player, filter);
        roster.addLink (102, filter, sink);
        roster.addLink (103, source, recorder);
        cycle.rate = 48000;
        cycle.duration = 480;
    }

    /** A node that did its work; times count from the signal of its cycle. */
    static NodeCycle follow (std::uint32_t id, std::int64_t signal, std::int64_t awake, std::int64_t finish)
    {
        NodeCycle node;
        node.id = id;
        node.signal = signal * millisecond;
        node.awake = awake * millisecond;
        node.finish = finish * millisecond;
        node.isFinished = true;
        return node;
    }

    /** A node that was signalled and did nothing. With a signal below 0 its turn has not come. */
    static NodeCycle stall (std::uint32_t id, std::int64_t signal = 0)
    {
        auto node = follow (id, signal, -1000, -1000);
        node.isFinished = false;
        return node;
    }

    /** Reports one cycle, at a distance from the one before. If not all finish, the next cycle begins as this one ends.
        Returns the sync count. */
    std::uint32_t run (std::int64_t distance, std::vector<NodeCycle> followers, std::uint32_t driver = sink)
    {
        const auto previous = std::exchange (time, time + distance * millisecond);
        cycle.driver.id = driver;
        cycle.driver.previousSignal = isInAnotherProcess ? time - 1 : previous;
        cycle.driver.signal = time;
        cycle.driver.finish = time + 3 * millisecond;
        cycle.position += cycle.duration;

        const auto isWhole = std::ranges::all_of (followers, &NodeCycle::isFinished) && ! isCut;
        cycle.clockTime = isWhole ? time : cycle.driver.finish;
        cycle.position += isWhole ? 0 : cycle.duration;

        for (auto& follower : followers)
            for (auto* moment : { &follower.signal, &follower.awake, &follower.finish })
                *moment += time;

        cycle.followers = std::move (followers);
        report();
        cycle.position -= isWhole ? 0 : cycle.duration;
        return figures.getCounters().syncCount;
    }

    void report()
    {
        const auto account = accountant.take (cycle, roster);

        if (! account)
            return;

        journal.follow (*account);
        clientFigures.add (*account, roster);

        if (const auto told = figures.add (*account, roster))
            for (const auto& xrun : *told)
                journal.add ("Deck", xrun);
    }

    /** The statistics: numbers of cycles, averages and maxima. */
    std::string describe() const { return describe (figures); }

    static std::string describe (const DeviceFigures& figures)
    {
        const auto block = figures.getStatistics();
        std::ostringstream text;
        text << "playback " << block.playbackBufferCount << ": " << inMs (block.playbackAverage) << ' '
             << inMs (block.playbackMaximum) << ", record " << block.recordBufferCount << ": "
             << inMs (block.recordAverage) << ' ' << inMs (block.recordMaximum) << ", wake-up "
             << inMs (block.wakeupAverage) << ' ' << inMs (block.wakeupMaximum) << ", host " << inMs (block.hostAverage)
             << ' ' << inMs (block.hostMaximum);

        if (block.offsetMaximum != StatisticsBlock::noMaximum || block.offsetMinimum != StatisticsBlock::noMinimum)
            text << ", offset " << inMs (block.offsetAverage) << ' ' << inMs (block.offsetMaximum) << ' '
                 << inMs (block.offsetMinimum);

        return text.str();
    }

    /** The firmware's counters: underruns, overflows, FIFO level and sync count. */
    Counts count() const
    {
        const auto& counters = figures.getCounters();
        return { counters.underruns, counters.overflows, counters.fifoLevel, counters.syncCount };
    }

    Event readLastEvent() const
    {
        const auto event = figures.getEvents().get (figures.getEvents().getLength() - 1);
        return { event.type, event.time / ticks, event.parameter, event.auxValue };
    }

    DeviceFigures figures { ours }, clientFigures { playersOwn };
    Roster roster;
    Accountant accountant;
    XrunJournal journal;
    Cycle cycle;
    std::int64_t time = 100'000 * millisecond;
    bool isInAnotherProcess = false; // the driver is
    bool isCut = false;              // a cycle ends late, and no follower is the reason
};

TEST_F (PipeWireFiguresTests, timesAreThoseOfTheCycles)
{
    // The sink waits while the player works for three milliseconds, which is no wait for the sink itself.
    const std::vector quick { follow (player, 0, 1, 2) };
    run (1000, quick); // the distance to the cycle before does not count
    run (10, quick);
    run (14, { follow (filter, 5, 9, 10), follow (player, 0, 2, 5) });
    EXPECT_EQ (describe(), "playback 3: 12 14, record 0: 0 0, wake-up 2 4, host 5.3333 10");
    EXPECT_EQ (describe (clientFigures), "playback 3: 12 14, record 0: 0 0, wake-up 1.3333 2, host 1.6666 3");

    // A lost report makes no long period, and a cycle of another device is not counted.
    figures.resetStatistics();
    time += 10 * millisecond;
    cycle.position += cycle.duration;
    run (10, {});
    run (10, quick, foreign);
    EXPECT_EQ (describe(), "playback 1: 10 10, record 0: 0 0, wake-up 0 0, host 3 3");
    EXPECT_EQ (count(), (Counts { 0, 0, 0, 1 }));

    // A driver in another process does not tell when the signal before its own was.
    isInAnotherProcess = true;
    run (10, {});
    figures.resetStatistics();
    run (14, {});
    cycle.position += cycle.duration;
    run (20, {}); // the report before this one was lost
    run (10, { stall (player) });
    run (10, {});
    EXPECT_EQ (describe(), "playback 4: 11.3333 14, record 0: 0 0, wake-up 0 0, host 3 3");
}

TEST_F (PipeWireFiguresTests, nothingIsComparedWithWhatWasBeforeAnotherQuantum)
{
    run (40, { follow (player, 0, 7, 9) });
    run (40, { follow (player, 0, 7, 9) });
    cycle.rate = 0; // the driver does not tell
    cycle.duration = 96;
    run (40, { follow (player, 0, 7, 9) }); // the cycle that ends here and the next one have the old length
    run (40, { follow (player, 0, 7, 9) });
    run (2, {});
    EXPECT_EQ (describe(), "playback 5: 2 2, record 0: 0 0, wake-up 0 0, host 3 3");
    EXPECT_EQ (figures.getSampleRate(), 48000u);
    EXPECT_EQ (figures.getBufferSize(), 96u);

    // A late cycle is reported with the clock of the next one.
    cycle.duration = 480;
    run (2, { stall (player) });
    EXPECT_EQ (figures.getBufferSize(), 96u);
}

TEST_F (PipeWireFiguresTests, lateClientIsAnXrunOfWhatItIsLinkedTo)
{
    run (10, { follow (player, 0, 1, 2), follow (recorder, 0, 1, 2) });
    const auto first = cycle;
    run (10, { follow (recorder, 0, 1, 2), stall (player), stall (filter, -9) });
    EXPECT_EQ (readLastEvent(), (Event { EventType::debugCounts, time / millisecond + 3, 1, 1 }));
    EXPECT_EQ (clientFigures.getCounters().underruns, 1u);

    // Both cycles are reported again when the next one begins, with its clock.
    const auto second = std::exchange (cycle, first);
    report();
    cycle = second;
    report();
    run (10, { follow (player, 0, 8, 9) });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 })) << "nothing had to be found again";
    EXPECT_EQ (describe(), "playback 3: 10 10, record 0: 0 0, wake-up 3.3333 8, host 5 9");

    // A sink that follows is not even triggered then; a source that drives misses nothing.
    run (10, { stall (player), stall (filter, -9), stall (sink, -8) }, source);
    run (10, { stall (recorder), follow (sink, 0, 0, 0) }, source);
    EXPECT_EQ (count(), (Counts { 2, 1, 0, 3 }));

    // A miss of another device's client is not counted here, nor is a cut of the graph.
    run (10, { stall (99), follow (sink, 0, 0, 0) }, source);
    isCut = true;
    run (10, { follow (sink, 0, 0, 0), follow (player, 0, 1, 2) }, source);
    isCut = false;
    EXPECT_EQ (run (10, { follow (sink, 0, 0, 0) }, source), 3u) << "the clock is where it is expected";
    EXPECT_EQ (count(), (Counts { 2, 1, 0, 3 }));
}

TEST_F (PipeWireFiguresTests, lateClientIsNamedWhenItIsBack)
{
    const auto wallTime = [this] { return time + std::int64_t { 3600 } * 1000 * millisecond; };
    ::setenv ("TZ", "UTC", 1);
    run (10, { follow (player, 0, 1, 2) });
    run (10, { stall (player), stall (recorder) }, sink);
    EXPECT_TRUE (journal.take (time, wallTime()).empty());
    run (10, { follow (player, 0, 4, 5) });
    EXPECT_EQ (journal.take (time, wallTime()),
               (std::vector<std::string> {
                   "1970-01-01 01:01:40.023 Deck: underrun, player (process 4711) was 11.0 ms late" }));

    // A client that never comes back is not waited for.
    run (10, { stall (recorder), follow (sink, 0, 0, 0) }, source);
    run (3010, {}, foreign);
    EXPECT_EQ (
        journal.take (time, wallTime()),
        (std::vector<std::string> { "1970-01-01 01:01:40.043 Deck: overflow, node 46 was more than 3007.0 ms late" }));
}

TEST_F (PipeWireFiguresTests, asynchronousClientHasUntilTheNextSignal)
{
    // Its work is reported one cycle later. It has been signalled again by then and has not finished that.
    auto client = follow (player, -10, -9, -6);
    client.isFinished = false;
    run (10, { client });
    isCut = true;
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 0, 0, 0, 1 }));
    EXPECT_EQ (describe(), "playback 2: 10 10, record 0: 0 0, wake-up 1 1, host 4 4");

    client.awake = client.finish = -15 * millisecond; // they belong to an earlier signal
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 }));
    EXPECT_EQ (describe(), "playback 3: 10 10, record 0: 0 0, wake-up 1 1, host 6 10");
    EXPECT_EQ (readLastEvent(), (Event { EventType::debugCounts, time / millisecond, 1, 1 }));

    client.signal = -25 * millisecond; // it takes no part in this cycle
    run (10, { client });
    client.signal = -10 * millisecond; // newer PipeWires say that it is not asynchronous
    client.isAsynchronous = false;
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 }));
}

TEST_F (PipeWireFiguresTests, hardwareTellsOfXrunsAndOfItsFifo)
{
    const auto runWith = [this] (std::uint32_t xruns, std::uint64_t delay, std::uint32_t driver, NodeCycle follower)
    {
        cycle.xruns = xruns;
        cycle.delay = delay;
        run (10, { follower }, driver);
        return count();
    };

    const auto client = follow (player, 0, 1, 2);
    auto follower = follow (sink, 0, 1, 2);
    EXPECT_EQ (runWith (5, 480, sink, client), (Counts { 0, 0, 512, 1 })) << "those are from before we looked";
    EXPECT_EQ (runWith (7, UINT64_MAX, sink, client), (Counts { 2, 0, 1024, 1 }));
    EXPECT_EQ (runWith (7, 96, source, client), (Counts { 2, 0, 102, 2 }));
    EXPECT_EQ (runWith (1, 96, source, client), (Counts { 2, 0, 102, 2 })) << "another start of the driver's";

    // Older PipeWires count a follower's xrun as its driver's, so nobody knows whose it was.
    EXPECT_EQ (runWith (2, 96, source, follower), (Counts { 3, 1, 102, 3 }));

    follower.xruns = 7;
    follower.delay = 192;
    EXPECT_EQ (runWith (3, 96, source, follower), (Counts { 3, 2, 102, 3 }));
    follower.xruns = 10;
    EXPECT_EQ (runWith (3, 96, source, follower), (Counts { 6, 2, 102, 3 }));

    // When it follows another device, what it tells itself counts; a clock that tells nothing changes nothing.
    follower.xruns = 11;
    EXPECT_EQ (runWith (9, 480, foreign, follower), (Counts { 7, 2, 204, 4 }));
    follower.delay.reset();
    EXPECT_EQ (runWith (10, 480, foreign, follower), (Counts { 7, 2, 0, 4 }));
}

TEST_F (PipeWireFiguresTests, offsetIsMeasuredBetweenTwoDrivers)
{
    for (const auto begin : { 1, 3, 9 })
    {
        run (10, { follow (sink, begin, begin, begin) }, source);
        EXPECT_EQ (describe().find ("offset"), std::string::npos) << "one driver signals both at once";
    }

    // Source and sink each drive a graph now; the sink's cycles begin that long after the source's.
    for (const auto distance : { 1, 3, 9 })
    {
        run (10, {}, source);
        const auto begin = std::exchange (time, time + (distance - 10) * millisecond);
        run (10, {}, sink);
        time = begin;
    }

    EXPECT_TRUE (describe().ends_with ("offset 1 3 -1")) << describe();
}

TEST_F (PipeWireFiguresTests, startsStopsAndLossesOfTheClockAreCountedAndLogged)
{
    run (10, { follow (player, 0, 1, 2) });
    figures.nodeStopped (sink, time + 15 * millisecond);
    EXPECT_EQ (run (10, {}), 1u) << "reports come late: this cycle began before the stop";
    EXPECT_EQ (run (1000, {}), 2u);
    EXPECT_EQ (inMs (figures.getStatistics().playbackMaximum), 10) << "a pause is not a period";

    using enum EventType;
    const auto& events = figures.getEvents();
    const std::array expected { talkAttachCompletion, talkComplete, userClientEvent,      outputReady,
                                talkComplete,         talkDetach,   talkAttachCompletion, talkComplete };
    ASSERT_EQ (events.getLength(), expected.size());

    for (std::uint32_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ (events.get (i).type, expected[i]) << i;

    cycle.position += 48;
    EXPECT_EQ (run (10, {}), 3u) << "the clock jumped";
    EXPECT_EQ (run (10, { follow (sink, 0, 1, 2) }, foreign), 4u) << "it follows another driver from now on";

    // Small corrections of the clock are routine.
    run (10, {});
    cycle.rateDifference = 1.000005;
    run (10, {});
    EXPECT_EQ (readLastEvent(), (Event { talkComplete, time / millisecond, 2, 0 }));
    cycle.rateDifference = 0.9998;
    run (10, {});
    EXPECT_EQ (readLastEvent(), (Event { clockAdjust, time / millisecond, 999800, -1 }));
}

TEST_F (PipeWireFiguresTests, idIsWhoseItWasWhenTheCycleBegan)
{
    run (10, { follow (player, 0, 1, 2) });
    const auto removal = time + 15 * millisecond;

    for (const auto id : { sink, 101u })
        roster.remove (id, removal);

    figures.nodeStopped (sink, removal);
    roster.addNode (sink, { NodeKind::client, 0, "stranger", 0 });
    run (10, { stall (player) });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 })) << "it was told of late, but it was the sink's";
    run (10, { stall (player), follow (sink, 0, 1, 2) }, foreign);
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 }));
    EXPECT_EQ (figures.getStatistics().playbackBufferCount, 2);

    // Another sink of this device takes its place.
    roster.addNode (99, { NodeKind::sink, ours, "", 0 });
    run (10, {}, 99);
    EXPECT_EQ (readLastEvent(), (Event { EventType::talkComplete, time / millisecond, 1, 0 }));
}

//==============================================================================
TEST (PipeWireOptionsTests, wrongOnesAreSaidInALine)
{
    for (const auto& [word, expected] : { std::pair { "--device", "--device needs a value" },
                                          std::pair { "--wrong", "--wrong: no such option" },
                                          std::pair { "word", "word: options only, please" },
                                          std::pair { "--machine=", "--machine: a folder" },
                                          std::pair { "--machine=/m", "" } })
    {
        std::string program = "quendel-pipewire", argument = word;
        char* arguments[] { program.data(), argument.data(), nullptr };
        Options options;
        auto wantsHelp = false;
        EXPECT_EQ (describeCommandLine (options).parse (2, arguments, wantsHelp), expected);
    }
}

} // namespace
