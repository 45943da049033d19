#include "drivers/machine/ErrorCode.h"
#include "drivers/pipewire/AudioInterface.h"
#include "drivers/pipewire/DeviceFigures.h"
#include "drivers/pipewire/Options.h"
#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/Sysfs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <tuple>
#include <utility>

namespace
{
using namespace PipeWire;
using DriverProtocol::EventType;
using Machine::EventRing;
namespace fs = std::filesystem;

//==============================================================================
/** What the profiler writes is made of pods: whole words of eight bytes, the first of which has type and size. */
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
    addProperty (0x20002, { integer, 1 }); // of newer profilers
    addPod (words, objectType, object);
}

/** The fuzz target sees to what is not whole. */
TEST (PipeWireProfileTests, cyclesAreReadAsTheProfilerWritesThem)
{
    Words objects { integer, 1 }, message; // something else is passed over
    addCycle (objects, INT64_MAX);
    addCycle (objects, 1024);
    addCycle (objects, 1024, 0x20002); // without a driver
    addPod (message, structType, objects);
    const auto bytes = std::as_bytes (std::span (message));
    const auto cycles = readProfile ({ reinterpret_cast<const std::uint8_t*> (bytes.data()), bytes.size() });
    ASSERT_EQ (cycles.size(), 2u);
    EXPECT_EQ (cycles[0].duration, 0u) << "not a duration";

    const auto& cycle = cycles[1];
    const Words told { cycle.hardwareXruns, cycle.rate, cycle.position, cycle.duration, cycle.delay };
    EXPECT_EQ (told, (Words { 3, 44100, 4096, 1024, std::uint64_t { 1 } << 63 })) << "no delay is negative";
    EXPECT_EQ (cycle.rateDifference, 1.5);
    ASSERT_EQ (cycle.followers.size(), 1u);

    const auto describe = [] (const NodeCycle& node) {
        return std::array { std::int64_t { node.id }, node.previousSignal, node.signal, node.awake, node.finish };
    };

    EXPECT_EQ (describe (cycle.driver), (std::array<std::int64_t, 5> { 35, 100, 200, 300, 400 }));
    EXPECT_EQ (describe (cycle.followers[0]), (std::array<std::int64_t, 5> { 45, 0, 210, 220, 0 })) << "-1 is no time";
    EXPECT_TRUE (cycle.driver.isFinished && ! cycle.followers[0].isFinished);
}

//==============================================================================
constexpr std::uint32_t sink = 35, source = 36, player = 45, recorder = 46, foreign = 50;

// A millisecond has so many of the nanoseconds that cycles have, and of the ticks that figures and events have.
constexpr std::int64_t millisecond = 1'000'000, ticks = 10'000;

double inMs (std::int64_t numTicks)
{
    return static_cast<double> (numTicks) / ticks;
}

/** A device with a sink and a source, and two clients, in cycles that the test describes; times are milliseconds. */
class PipeWireFiguresTests : public testing::Test
{
protected:
    using Counts = std::vector<std::uint32_t>;
    using Event = std::tuple<EventType, std::int64_t, std::uint32_t, int>; // with milliseconds

    PipeWireFiguresTests()
    {
        figures.addNode (sink);
        figures.addNode (source);
        cycle.rate = 48000;
        cycle.duration = 480;
    }

    /** Times count from the signal of the cycle that it will be in. */
    static NodeCycle follow (std::uint32_t id, std::int64_t signal, std::int64_t awake, std::int64_t finish)
    {
        return { id, 0, signal * millisecond, awake * millisecond, finish * millisecond, true };
    }

    /** One whole cycle, so long after the one before. Returns the sync count. */
    std::uint32_t run (std::int64_t distance, std::vector<NodeCycle> followers, std::uint32_t driver = sink)
    {
        const auto previous = std::exchange (time, time + distance * millisecond);
        cycle.driver = { driver, previous, time, time + 2 * millisecond, time + 3 * millisecond, true };
        cycle.position += 480;

        for (auto& follower : followers)
            for (auto* moment : { &follower.signal, &follower.awake, &follower.finish })
                *moment += time;

        cycle.followers = std::move (followers);
        report();
        return figures.getCounters().syncCount;
    }

    void report()
    {
        if (const auto xruns = filter.take (cycle))
            figures.add (cycle, *xruns, kinds);
    }

    /** The statistics: numbers of cycles, then averages and maxima. */
    std::string describe() const
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

    std::vector<EventRing::Entry> readEvents()
    {
        std::vector<EventRing::Entry> entries;

        while (const auto entry = figures.getEvents().read (1, static_cast<std::uint32_t> (entries.size())))
            entries.push_back (*entry);

        return entries;
    }

    Event readLastEvent()
    {
        const auto event = readEvents().back();
        return { event.type, event.time / ticks, event.parameter, event.auxValue };
    }

    DeviceFigures figures;
    CycleFilter filter;
    NodeKinds kinds { { sink, NodeKind::sink },
                      { source, NodeKind::source },
                      { player, NodeKind::playbackStream },
                      { recorder, NodeKind::captureStream },
                      { foreign, NodeKind::sink } };
    Cycle cycle;
    std::int64_t time = 100'000 * millisecond;
};

TEST_F (PipeWireFiguresTests, timesAreThoseOfTheCycles)
{
    const auto quick = follow (player, 0, 1, 2);
    run (1000, { quick }); // the distance to what was before is none of this run's
    run (10, { quick });
    run (14, { follow (player, 0, 4, 5), quick });
    EXPECT_EQ (describe(), "playback 3: 12 14, record 0: 0 0, wake-up 2 4, host 3.6666 5");

    figures.resetStatistics();
    cycle.rate = 0; // not told
    cycle.duration = 960;
    run (20, {});
    EXPECT_EQ (describe(), "playback 1: 20 20, record 0: 0 0, wake-up 0 0, host 3 3") << "it went on running";
    EXPECT_EQ (figures.getSampleRate(), 48000u);
    EXPECT_EQ (figures.getBufferSize(), 960u);

    // A report that was lost makes no long period, and a cycle of somebody else's device is none of this one's.
    time += 10 * millisecond;
    run (10, {});
    run (10, { quick }, foreign);
    EXPECT_EQ (describe(), "playback 2: 15 20, record 0: 0 0, wake-up 0 0, host 3 3");
    EXPECT_EQ (count(), (Counts { 0, 0, 0, 1 }));
}

TEST_F (PipeWireFiguresTests, lateClientIsAnXrunOfItsSideWithTheTimeOfItsEnd)
{
    run (10, { follow (player, 0, 1, 2) });
    const auto first = cycle;
    auto late = follow (player, 0, -1000, -1000); // what it did in an earlier cycle
    late.isFinished = false;
    run (10, { follow (recorder, 0, 1, 2), late });
    EXPECT_EQ (readLastEvent(), (Event { EventType::debugCounts, time / millisecond + 3, 1, 1 }));

    // Both cycles are reported again when the next one begins, with its clock.
    const auto second = std::exchange (cycle, first);
    report();
    cycle = second;
    cycle.position += 480;
    report();
    run (10, { follow (player, 0, 8, 9) });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 })) << "nothing had to be found again";
    EXPECT_EQ (describe(), "playback 3: 10 10, record 0: 0 0, wake-up 3.3333 8, host 5 9");

    // One that records is missed by the source alone, of which there is none here; another kind by both.
    figures.clearCounters();
    late.id = recorder;
    run (10, { late });
    EXPECT_EQ (count(), (Counts { 0, 0, 0, 0 }));
    late.id = 99;
    run (10, { late });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 0 }));
}

TEST_F (PipeWireFiguresTests, asynchronousClientHasUntilTheNextSignal)
{
    // Told of with the cycle after the one that it is about; signalled anew meanwhile, it has not finished that.
    auto client = follow (player, -10, -9, -6);
    client.isFinished = false;
    run (10, { client });
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 0, 0, 0, 1 }));
    EXPECT_EQ (describe(), "playback 2: 10 10, record 0: 0 0, wake-up 1 1, host 4 4");

    client.awake = client.finish = -15 * millisecond; // of an earlier signal
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 }));
    EXPECT_EQ (describe(), "playback 3: 10 10, record 0: 0 0, wake-up 1 1, host 6 10");
    EXPECT_EQ (readLastEvent(), (Event { EventType::debugCounts, time / millisecond, 1, 1 }));

    client.signal = -25 * millisecond; // no part in this at all
    run (10, { client });
    EXPECT_EQ (count(), (Counts { 1, 0, 0, 1 }));
}

TEST_F (PipeWireFiguresTests, hardwareTellsOfXrunsAndOfItsFifo)
{
    const auto runWith = [this] (std::uint32_t hardwareXruns, std::uint64_t delay, std::uint32_t driver)
    {
        cycle.hardwareXruns = hardwareXruns;
        cycle.delay = delay;
        run (10, { follow (driver == foreign ? sink : player, 0, 1, 2) }, driver);
        return count();
    };

    EXPECT_EQ (runWith (5, 480, sink), (Counts { 0, 0, 512, 1 })) << "those are from before we looked";
    EXPECT_EQ (runWith (7, UINT64_MAX, sink), (Counts { 2, 0, 1024, 1 }));
    EXPECT_EQ (runWith (7, UINT64_MAX, source), (Counts { 2, 0, 1024, 2 }));
    EXPECT_EQ (runWith (1, UINT64_MAX, source), (Counts { 2, 0, 1024, 2 })) << "another start of the driver's";
    EXPECT_EQ (runWith (2, UINT64_MAX, source), (Counts { 2, 1, 1024, 2 }));

    // Following another device, it has neither.
    EXPECT_EQ (runWith (0, 0, foreign), (Counts { 2, 1, 1024, 3 }));
    EXPECT_EQ (runWith (9, 0, foreign), (Counts { 2, 1, 1024, 3 }));
}

TEST_F (PipeWireFiguresTests, offsetIsFromTheSourcesCycleToTheNearestOfTheSink)
{
    for (const auto signal : { 1, 3, 9 })
        run (10, { follow (sink, signal, signal, signal) }, source);

    EXPECT_EQ (describe(), "playback 3: 14 16, record 3: 10 10, wake-up 4.3333 9, host 5 9, offset 1 3 -1");
}

TEST_F (PipeWireFiguresTests, startsStopsAndLossesOfTheClockAreCountedAndLogged)
{
    run (10, { follow (player, 0, 1, 2) });
    figures.nodeStopped (sink, time + 15 * millisecond);
    EXPECT_EQ (run (10, {}), 1u) << "reports come late: this cycle began before the stop";
    EXPECT_EQ (run (1000, {}), 2u);
    EXPECT_EQ (inMs (figures.getStatistics().playbackMaximum), 10) << "a pause is not a period";

    using enum EventType;
    std::vector expected { talkAttachCompletion, talkComplete, userClientEvent, outputReady };
    expected.insert (expected.end(), { talkDetach, talkComplete, talkAttachCompletion, talkComplete });
    std::vector<EventType> types;
    std::ranges::transform (readEvents(), std::back_inserter (types), &EventRing::Entry::type);
    EXPECT_EQ (types, expected);

    cycle.position += 48;
    EXPECT_EQ (run (10, {}), 3u) << "the clock jumped";
    EXPECT_EQ (run (10, { follow (sink, 0, 1, 2) }, foreign), 4u) << "it follows another driver from now on";

    // With the sink gone, another one of this device is measured.
    figures.nodeRemoved (sink, time + 1);
    figures.addNode (foreign);
    EXPECT_EQ (run (10, {}, foreign), 5u);
    EXPECT_EQ (readLastEvent(), (Event { talkComplete, time / millisecond, 1, 0 })) << "the first cycle of this run";

    // Small corrections of the clock are its daily work.
    cycle.rateDifference = 1.000005;
    run (10, {}, foreign);
    EXPECT_EQ (readLastEvent(), (Event { talkComplete, time / millisecond, 2, 0 }));
    cycle.rateDifference = 0.9998;
    run (10, {}, foreign);
    EXPECT_EQ (readLastEvent(), (Event { clockAdjust, time / millisecond, 999800, -1 }));
}

//==============================================================================
TEST (EventRingTests, readersSeeAPictureOfTheNewestEntries)
{
    EventRing ring;
    EXPECT_FALSE (ring.read (1, 0));

    for (std::uint32_t i = 0; i < EventRing::maximumLength + 3; ++i)
        ring.append ({ i, i, EventType::talkComplete, 0 });

    EXPECT_EQ (ring.read (1, 0)->parameter, 3u);
    ring.append ({ 0, 77, EventType::talkComplete, 0 });
    EXPECT_EQ (ring.read (2, 0)->parameter, 4u) << "each reader has a picture of its own";
    EXPECT_EQ (ring.read (1, 1)->parameter, 4u) << "and it stands still";
    EXPECT_EQ (ring.read (1, EventRing::maximumLength - 1)->parameter, EventRing::maximumLength + 2);
    EXPECT_FALSE (ring.read (1, 1)) << "the last entry ends it";
    ring.forget (2);
    EXPECT_FALSE (ring.read (2, 1));
}

TEST (PipeWireInterfaceTests, requestsAreAnsweredAsTheProtocolHasThem)
{
    using namespace DriverProtocol;

    AudioInterface interface ({ "folder", "Name", 1, 2 }, "/nowhere");
    const auto ask = [&] (const auto& input, std::uint32_t code, std::uint32_t size)
    {
        const auto* bytes = reinterpret_cast<const std::uint8_t*> (&input);
        return interface.handle ({ code, size, { bytes, sizeof (input) }, 1 }).packet;
    };

    for (const auto code : { ReadStreamStatus, MapStatistics, ResetStatistics, ReadEventEntry })
        EXPECT_EQ (ask (CommandEnvelope { {}, code, {} }, IOCTL_DEVICE_COMMAND, 64).size(), 4u + 64);

    EXPECT_EQ (ask (CommandEnvelope { {}, 99, {} }, IOCTL_DEVICE_COMMAND, 64)[0], Machine::invalidFunction);
    EXPECT_EQ (ask ('c', IOCTL_DEVICE_COMMAND, 64)[0], Machine::invalidParameter);

    const auto transact = [&] (TransactionCode code, std::uint32_t length, std::uint32_t access, std::uint32_t size) {
        return ask (TransactionBlock { 7, length, {}, 0, code, 7, { access } }, IOCTL_DEVICE_TRANSACTION, size);
    };

    EXPECT_EQ (transact (ProbeDevice, headerLength, 0, 28).size(), 4u + 28);
    EXPECT_EQ (transact (ProbeDevice, headerLength, 0, 4000).size(), 4u + 64);
    EXPECT_EQ (transact (AccessFirmwareCounters, headerLength, 0, 92)[0], Machine::invalidParameter);
    const auto counters = transact (AccessFirmwareCounters, fullLength, 0, 92);
    ASSERT_EQ (counters.size(), 4u + 92);
    EXPECT_EQ (counters[4 + offsetof (TransactionBlock, status)], 0) << "what the last reply said does not come back";
    EXPECT_EQ (counters[4 + offsetof (TransactionBlock, deviceStatus)], 0);
    EXPECT_EQ (transact (AccessFirmwareCounters, fullLength, 1, 92)[0], Machine::invalidParameter);
}

TEST (PipeWireSysfsTests, controllersAndIdsAreReadFromTheKernelsTree)
{
    auto pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
    const fs::path root = ::mkdtemp (pattern.data());

    for (const auto& [file, text] : { std::pair { "bus/pci/devices/0000:05:00.0/class", "0x0c0010" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/class", "0x0c0010" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/vendor", "0x104c" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/device", "0x8025" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/subsystem_vendor", "0x1043" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/subsystem_device", "0x0001" },
                                      std::pair { "bus/pci/devices/0000:03:00.0/revision", "0x1" },
                                      std::pair { "bus/pci/devices/0000:00:01.0/class", "0x0c0330" }, // USB
                                      std::pair { "bus/firewire/devices/fw1/vendor", "0x000a35" },
                                      std::pair { "bus/firewire/devices/fw1/model", "0x10000d" } })
    {
        fs::create_directories ((root / file).parent_path());
        std::ofstream (root / file) << text << "\n";
    }

    EXPECT_EQ (findHostControllers (root),
               (std::vector<std::string> { "PCI\\VEN_104C&DEV_8025&SUBSYS_00011043&REV_01\\0000:03:00.0",
                                           "PCI\\VEN_0000&DEV_0000&SUBSYS_00000000&REV_00\\0000:05:00.0" }));

    const auto ids = readFireWireIds (root, "/devices/fw-bridge/0000:05:00.0/fw1/fw1.0/sound/card2");
    EXPECT_EQ (ids.vendor, 0x000a35u);
    EXPECT_EQ (ids.model, 0x10000du);
    EXPECT_EQ (readFireWireIds (root, "/devices/pci0000:00/usb1/1-1").vendor, 0u);
    EXPECT_TRUE (findHostControllers (root / "nothing").empty());
    EXPECT_EQ (parseId ("65536"), 65536u);

    for (const auto* text : { "", "0x", "12x", "-1", "99999999999", "0x123456789" })
        EXPECT_EQ (parseId (text), 0u) << text;

    fs::remove_all (root);
}

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
        EXPECT_EQ (parseOptions (2, arguments, options), expected);
    }
}

} // namespace
