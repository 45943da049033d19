#include "drivers/machine/Clock.h"
#include "drivers/machine/ErrorCode.h"
#include "drivers/pipewire/AudioInterface.h"
#include "drivers/pipewire/DeviceFigures.h"
#include "drivers/pipewire/Options.h"
#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/Sysfs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{
using namespace PipeWire;
using Machine::EventRing;
using Machine::EventType;
namespace fs = std::filesystem;

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t ticks = 100; // nanoseconds

//==============================================================================
/** Writes pods as the profiler does. */
struct Pods
{
    template <typename Value>
    Pods& add (std::uint32_t type, Value value)
    {
        std::vector<std::uint8_t> body (sizeof (value));
        std::memcpy (body.data(), &value, sizeof (value));
        return addBody (type, body);
    }

    Pods& addBody (std::uint32_t type, std::vector<std::uint8_t> body)
    {
        const std::uint32_t header[] { static_cast<std::uint32_t> (body.size()), type };
        const auto* start = reinterpret_cast<const std::uint8_t*> (header);
        bytes.insert (bytes.end(), start, start + sizeof (header));
        body.resize ((body.size() + 7) / 8 * 8);
        bytes.insert (bytes.end(), body.begin(), body.end());
        return *this;
    }

    Pods& addInt (std::int32_t value) { return add (4, value); }
    Pods& addLong (std::int64_t value) { return add (5, value); }
    Pods& addText (const char* text) { return addBody (8, { text, text + std::strlen (text) + 1 }); }

    Pods& addProperty (std::uint32_t key, const Pods& structure)
    {
        const std::uint32_t header[] { key, 0 };
        const auto* start = reinterpret_cast<const std::uint8_t*> (header);
        bytes.insert (bytes.end(), start, start + sizeof (header));
        return addBody (14, structure.bytes);
    }

    std::vector<std::uint8_t> bytes;
};

Pods makeNode (int id, std::int64_t previous, std::int64_t signal, std::int64_t awake, std::int64_t finish, int state)
{
    return Pods()
        .addInt (id)
        .addText ("node")
        .addLong (previous)
        .addLong (signal)
        .addLong (awake)
        .addLong (finish)
        .addInt (state);
}

std::vector<std::uint8_t> makeMessage (std::int64_t delay, std::int64_t duration)
{
    const auto info = Pods().addLong (7).add (6, 0.1f).add (6, 0.1f).add (6, 0.1f).addInt (3);
    const std::uint32_t rate[] { 1, 44100 };
    const auto clock = Pods()
                           .addInt (0)
                           .addInt (35)
                           .addText ("clock")
                           .addLong (second)
                           .add (11, std::bit_cast<std::uint64_t> (rate))
                           .addLong (4096)
                           .addLong (duration)
                           .addLong (delay)
                           .add (7, 1.5)
                           .addLong (2 * second);

    Pods object;
    const std::uint32_t type[] { 0x4000A, 0 };
    object.bytes.assign (reinterpret_cast<const std::uint8_t*> (type),
                         reinterpret_cast<const std::uint8_t*> (type + 2));
    object.addProperty (0x10001, info)
        .addProperty (0x10002, clock)
        .addProperty (0x10003, makeNode (35, 100, 200, 300, 400, 3))
        .addProperty (0x20001, makeNode (45, 0, 210, 220, -1, 1))
        .addProperty (0x20002, Pods().addInt (1)); // of newer profilers

    // Something else in between is passed over.
    return Pods().addBody (14, Pods().addInt (1).addBody (15, object.bytes).addBody (15, object.bytes).bytes).bytes;
}

TEST (PipeWireProfileTests, cyclesAreReadAsTheProfilerWritesThem)
{
    const auto cycles = readProfile (makeMessage (INT64_MIN, 1024));
    ASSERT_EQ (cycles.size(), 2u);

    const auto& cycle = cycles[1];
    EXPECT_EQ (cycle.hardwareXruns, 3u);
    EXPECT_EQ (cycle.rate, 44100u);
    EXPECT_EQ (cycle.position, 4096u);
    EXPECT_EQ (cycle.duration, 1024u);
    EXPECT_EQ (cycle.delay, std::uint64_t { 1 } << 63) << "the smallest delay has no positive counterpart";
    EXPECT_EQ (cycle.rateDifference, 1.5);
    EXPECT_EQ (cycle.driver.id, 35u);
    EXPECT_EQ (cycle.driver.previousSignal, 100);
    EXPECT_EQ (cycle.driver.signal, 200);
    EXPECT_EQ (cycle.driver.awake, 300);
    EXPECT_EQ (cycle.driver.finish, 400);
    EXPECT_TRUE (cycle.driver.isFinished);
    ASSERT_EQ (cycle.followers.size(), 1u);
    EXPECT_EQ (cycle.followers[0].awake, 220);
    EXPECT_EQ (cycle.followers[0].finish, 0) << "not a time";
    EXPECT_FALSE (cycle.followers[0].isFinished);
    EXPECT_EQ (readProfile (makeMessage (-256, INT64_MAX))[0].duration, 0u) << "not a duration";
}

TEST (PipeWireProfileTests, whatIsNotWholeOrNotTrueIsLeftOut)
{
    const auto whole = makeMessage (0, 1024);

    for (std::size_t length = 0; length < whole.size(); ++length)
    {
        // Its own copy, so that the sanitizer sees a byte too much.
        const std::vector<std::uint8_t> part (whole.begin(), whole.begin() + static_cast<std::ptrdiff_t> (length));
        EXPECT_TRUE (readProfile (part).empty());
    }

    for (std::size_t position = 0; position + 4 <= whole.size(); position += 4)
    {
        for (const auto value : std::initializer_list<std::uint8_t> { 0x00, 0x7f, 0xff })
        {
            auto spoilt = whole;
            std::fill_n (spoilt.begin() + static_cast<std::ptrdiff_t> (position), 4, value);
            EXPECT_LE (readProfile (spoilt).size(), 2u);
        }
    }
}

//==============================================================================
constexpr std::uint32_t sink = 35;
constexpr std::uint32_t source = 36;
constexpr std::uint32_t player = 45;
constexpr std::uint32_t recorder = 46;
constexpr std::uint32_t foreign = 50;

/** A device with a sink and a source, and two clients, in cycles that the test describes. */
class PipeWireFiguresTests : public testing::Test
{
protected:
    PipeWireFiguresTests()
    {
        figures.addNode (sink);
        figures.addNode (source);
        cycle.rate = 48000;
        cycle.duration = 480;
    }

    static NodeCycle follow (std::uint32_t id, std::int64_t signal, std::int64_t awake, std::int64_t finish)
    {
        return { id, 0, signal, awake, finish, true };
    }

    /** One whole cycle, so long after the one before; followers' times count from its signal. */
    void run (std::int64_t distance, std::vector<NodeCycle> followers, std::uint32_t driver = sink)
    {
        cycle.driver.previousSignal = time;
        time += distance;
        cycle.driver = {
            driver, cycle.driver.previousSignal, time, time + 2 * millisecond, time + 3 * millisecond, true
        };
        cycle.position += 480;

        for (auto& follower : followers)
            for (auto* moment : { &follower.signal, &follower.awake, &follower.finish })
                *moment += time;

        cycle.followers = std::move (followers);
        report();
    }

    void report()
    {
        if (const auto xruns = filter.take (cycle))
            figures.add (cycle, *xruns, kinds);
    }

    std::vector<EventRing::Entry> readEvents()
    {
        std::vector<EventRing::Entry> entries;

        while (const auto entry = figures.getEvents().read (1, static_cast<std::uint32_t> (entries.size())))
            entries.push_back (*entry);

        return entries;
    }

    std::vector<EventType> readTypes()
    {
        std::vector<EventType> types;

        for (const auto& entry : readEvents())
            types.push_back (entry.type);

        return types;
    }

    DeviceFigures figures;
    CycleFilter filter;
    NodeKinds kinds { { sink, NodeKind::sink },
                      { source, NodeKind::source },
                      { player, NodeKind::playbackStream },
                      { recorder, NodeKind::captureStream },
                      { foreign, NodeKind::sink } };
    Cycle cycle;
    std::int64_t time = 100 * second;
};

TEST_F (PipeWireFiguresTests, timesAreThoseOfTheCycles)
{
    const auto quick = follow (player, 0, millisecond, 2 * millisecond);
    run (second, { quick }); // the distance to what was before is none of this run's
    run (10 * millisecond, { quick });
    run (14 * millisecond, { follow (player, 0, 4 * millisecond, 5 * millisecond), quick });

    auto block = figures.getStatistics();
    EXPECT_EQ (block.playbackBufferCount, 3);
    EXPECT_EQ (block.playbackAverage, 12 * millisecond / ticks);
    EXPECT_EQ (block.playbackMaximum, 14 * millisecond / ticks);
    EXPECT_EQ (block.wakeupAverage, 2 * millisecond / ticks);
    EXPECT_EQ (block.wakeupMaximum, 4 * millisecond / ticks);
    EXPECT_EQ (block.hostAverage, (3 + 3 + 5) * millisecond / 3 / ticks) << "the driver itself finishes after 3 ms";
    EXPECT_EQ (block.hostMaximum, 5 * millisecond / ticks);
    EXPECT_EQ (block.recordBufferCount, 0);
    EXPECT_EQ (block.recordMaximum, 0);
    EXPECT_EQ (+block.offsetMaximum, StatisticsBlock::noMaximum) << "there is only one of them";
    EXPECT_EQ (+block.offsetMinimum, StatisticsBlock::noMinimum);
    EXPECT_EQ (figures.getSampleRate(), 48000u);
    EXPECT_EQ (figures.getBufferSize(), 480u);

    figures.resetStatistics();
    cycle.rate = 0; // not told
    cycle.duration = 960;
    run (20 * millisecond, {});
    block = figures.getStatistics();
    EXPECT_EQ (block.playbackBufferCount, 1);
    EXPECT_EQ (block.playbackMaximum, 20 * millisecond / ticks) << "it went on running";
    EXPECT_EQ (block.wakeupMaximum, 0) << "nobody was woken";
    EXPECT_EQ (figures.getSampleRate(), 48000u);
    EXPECT_EQ (figures.getBufferSize(), 960u);

    // A report that was lost makes no long period: the driver tells when its cycle before was.
    time += 10 * millisecond;
    run (10 * millisecond, {});
    EXPECT_EQ (figures.getStatistics().playbackMaximum, 20 * millisecond / ticks);
    EXPECT_EQ (figures.getCounters().syncCount, 1u);

    // A cycle of somebody else's device is none of this one's.
    run (10 * millisecond, { quick }, foreign);
    EXPECT_EQ (figures.getStatistics().playbackBufferCount, 2);
}

TEST_F (PipeWireFiguresTests, lateClientIsAnXrunOfItsSideWithTheTimeOfItsEnd)
{
    run (10 * millisecond, { follow (player, 0, 1, 2) });
    const auto last = cycle;
    auto late = follow (player, 5, -second, -second); // what it did in an earlier cycle
    late.isFinished = false;
    run (10 * millisecond, { follow (recorder, 0, 1, 2), late });
    const auto lateTime = time;

    // Both cycles are reported again when the next one begins, with its clock.
    const auto late2 = cycle;
    cycle = last;
    cycle.driver.finish = lateTime;
    report();
    cycle = late2;
    cycle.position += 480;
    report();
    run (10 * millisecond, { follow (player, 0, 8 * millisecond, 9 * millisecond) });

    EXPECT_EQ (figures.getCounters().underruns, 1u);
    EXPECT_EQ (figures.getCounters().overflows, 0u);
    EXPECT_EQ (figures.getCounters().syncCount, 1u) << "nothing had to be found again";
    EXPECT_EQ (figures.getStatistics().playbackBufferCount, 3);
    EXPECT_EQ (figures.getStatistics().wakeupMaximum, 8 * millisecond / ticks);

    const auto events = readEvents();
    const auto xrun =
        std::find_if (events.begin(), events.end(), [] (const auto& e) { return e.type == EventType::debugCounts; });
    ASSERT_NE (xrun, events.end());
    EXPECT_EQ (xrun->time, (lateTime + 3 * millisecond) / ticks);
    EXPECT_EQ (xrun->parameter, 1u);
    EXPECT_EQ (xrun->auxValue, 1);

    figures.clearCounters();
    EXPECT_EQ (figures.getCounters().underruns + figures.getCounters().syncCount, 0u);

    // One that records is missed by the source alone, of which there is none here; another kind by both.
    late.id = recorder;
    run (10 * millisecond, { late });
    EXPECT_EQ (figures.getCounters().underruns, 0u);
    late.id = 99;
    run (10 * millisecond, { late });
    EXPECT_EQ (figures.getCounters().underruns, 1u);
}

TEST_F (PipeWireFiguresTests, asynchronousClientHasUntilTheNextSignal)
{
    // Told of with the cycle after the one that it is about; signalled anew meanwhile, it has not finished that.
    auto client = follow (player, -10 * millisecond, -9 * millisecond, -6 * millisecond);
    client.isFinished = false;
    run (10 * millisecond, { client });
    run (10 * millisecond, { client });
    EXPECT_EQ (figures.getCounters().underruns, 0u);
    EXPECT_EQ (figures.getStatistics().wakeupMaximum, 1 * millisecond / ticks);
    EXPECT_EQ (figures.getStatistics().hostMaximum, 4 * millisecond / ticks);

    client.awake = client.finish = -15 * millisecond; // of an earlier signal
    run (10 * millisecond, { client });
    EXPECT_EQ (figures.getCounters().underruns, 1u);
    EXPECT_EQ (figures.getStatistics().hostMaximum, 10 * millisecond / ticks);
    EXPECT_EQ (readEvents().back().type, EventType::debugCounts);
    EXPECT_EQ (readEvents().back().time, time / ticks);

    client.signal = -25 * millisecond; // no part in this at all
    run (10 * millisecond, { client });
    EXPECT_EQ (figures.getCounters().underruns, 1u);
    EXPECT_EQ (figures.getCounters().syncCount, 1u);
}

TEST_F (PipeWireFiguresTests, hardwareTellsOfXrunsAndOfItsFifo)
{
    cycle.hardwareXruns = 5; // from before we looked
    cycle.delay = 480;
    run (10 * millisecond, {});
    EXPECT_EQ (figures.getCounters().underruns, 0u);
    EXPECT_EQ (figures.getCounters().fifoLevel, 512u);

    cycle.hardwareXruns = 7;
    cycle.delay = UINT64_MAX;
    run (10 * millisecond, {});
    EXPECT_EQ (figures.getCounters().underruns, 2u);
    EXPECT_EQ (figures.getCounters().fifoLevel, 1024u);

    run (10 * millisecond, {}, source);
    cycle.hardwareXruns = 1; // another start of the driver's
    run (10 * millisecond, {}, source);
    cycle.hardwareXruns = 2;
    run (10 * millisecond, {}, source);
    EXPECT_EQ (figures.getCounters().overflows, 1u);

    // Following another device, it has neither.
    cycle.hardwareXruns = 0;
    cycle.delay = 0;
    run (10 * millisecond, { follow (sink, 0, 1, 2) }, foreign);
    cycle.hardwareXruns = 9;
    run (10 * millisecond, { follow (sink, 0, 1, 2) }, foreign);
    EXPECT_EQ (figures.getCounters().underruns, 2u);
    EXPECT_EQ (figures.getCounters().fifoLevel, 1024u);
}

TEST_F (PipeWireFiguresTests, offsetIsFromTheSourcesCycleToTheNearestOfTheSink)
{
    for (const auto signal : { 1 * millisecond, 3 * millisecond, 9 * millisecond })
        run (10 * millisecond, { follow (sink, signal, signal, signal) }, source);

    const auto block = figures.getStatistics();
    EXPECT_EQ (block.recordBufferCount, 3);
    EXPECT_EQ (block.recordAverage, 10 * millisecond / ticks);
    EXPECT_EQ (block.playbackBufferCount, 3);
    EXPECT_EQ (block.playbackMaximum, 16 * millisecond / ticks) << "from 3 ms in one cycle to 9 ms in the next";
    EXPECT_EQ (+block.offsetMaximum, 3 * millisecond / ticks);
    EXPECT_EQ (+block.offsetMinimum, -1 * millisecond / ticks);
    EXPECT_EQ (+block.offsetAverage, 1 * millisecond / ticks);
}

TEST_F (PipeWireFiguresTests, startsStopsAndLossesOfTheClockAreCountedAndLogged)
{
    run (10 * millisecond, { follow (player, 0, 1, 2) });
    figures.nodeStopped (sink, time + 15 * millisecond);

    // Reports come late: this cycle began before the stop, the next one after it.
    run (10 * millisecond, {});
    EXPECT_EQ (figures.getCounters().syncCount, 1u);
    run (second, {});
    EXPECT_EQ (figures.getCounters().syncCount, 2u);
    EXPECT_EQ (figures.getStatistics().playbackMaximum, 10 * millisecond / ticks) << "a pause is not a period";

    using enum EventType;
    EXPECT_EQ (readTypes(),
               (std::vector<EventType> { talkAttachCompletion,
                                         talkComplete,
                                         userClientEvent,
                                         outputReady,
                                         talkDetach,
                                         talkComplete,
                                         talkAttachCompletion,
                                         talkComplete }));

    cycle.position += 48;
    run (10 * millisecond, {});
    EXPECT_EQ (figures.getCounters().syncCount, 3u) << "the clock jumped";
    cycle.driver.signal = time; // of the driver that it follows from now on
    run (10 * millisecond, { follow (sink, 0, 1, 2) }, foreign);
    EXPECT_EQ (figures.getCounters().syncCount, 4u);

    // With the sink gone, another one of this device is measured.
    figures.nodeRemoved (sink, time + 1);
    figures.addNode (foreign);
    run (10 * millisecond, {}, foreign);
    EXPECT_EQ (figures.getCounters().syncCount, 5u);
    EXPECT_EQ (readEvents().back().parameter, 1u) << "the first cycle of this run";

    // Small corrections of the clock are its daily work.
    cycle.rateDifference = 1.000005;
    run (10 * millisecond, {}, foreign);
    cycle.rateDifference = 0.9998;
    run (10 * millisecond, {}, foreign);
    EXPECT_EQ (readEvents().back().type, clockAdjust);
    EXPECT_EQ (readEvents().back().parameter, 999800u);
    EXPECT_EQ (readEvents().back().auxValue, -1);
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
    AudioInterface interface ({ "folder", "Name", 1, 2 }, "/nowhere");
    DriverProtocol::CommandEnvelope envelope {};
    const auto ask = [&] (const auto& input, std::uint32_t code, std::uint32_t size)
    {
        const auto* bytes = reinterpret_cast<const std::uint8_t*> (&input);
        return interface.handle ({ code, size, { bytes, sizeof (input) }, 1 }).packet;
    };

    const auto command = [&] (std::uint32_t code)
    {
        envelope.code = code;
        return ask (envelope, DriverProtocol::IOCTL_DEVICE_COMMAND, sizeof (envelope));
    };

    for (const auto code :
         { DriverProtocol::ReadStreamStatus, DriverProtocol::MapStatistics, DriverProtocol::ResetStatistics })
        EXPECT_EQ (command (code).size(), 4 + sizeof (envelope));

    EXPECT_EQ (command (DriverProtocol::ReadEventEntry)[4 + 28], 0xff) << "there is no entry";
    EXPECT_EQ (command (99)[0], Machine::invalidFunction);
    EXPECT_EQ (ask (envelope, DriverProtocol::IOCTL_DEVICE_COMMAND, 63)[0], Machine::insufficientBuffer);
    EXPECT_EQ (ask ('c', DriverProtocol::IOCTL_DEVICE_COMMAND, 64)[0], Machine::invalidParameter);
    EXPECT_EQ (ask (envelope, 1, 64)[0], Machine::invalidFunction);

    DriverProtocol::TransactionBlock block {};
    block.length = DriverProtocol::headerLength;
    block.code = DriverProtocol::ProbeDevice;
    EXPECT_EQ (ask (block, DriverProtocol::IOCTL_DEVICE_TRANSACTION, 28).size(), 4u + 28);
    EXPECT_EQ (ask (block, DriverProtocol::IOCTL_DEVICE_TRANSACTION, 4000).size(), 4u + 64);
    block.code = DriverProtocol::AccessFirmwareCounters;
    EXPECT_EQ (ask (block, DriverProtocol::IOCTL_DEVICE_TRANSACTION, 92)[0], Machine::invalidParameter) << "length";
    block.length = DriverProtocol::fullLength;
    EXPECT_EQ (ask (block, DriverProtocol::IOCTL_DEVICE_TRANSACTION, 92).size(), 4u + 92);
    block.words[0] = 1;
    EXPECT_EQ (ask (block, DriverProtocol::IOCTL_DEVICE_TRANSACTION, 92)[0], Machine::invalidParameter) << "access";
}

TEST (PipeWireSysfsTests, controllersAndIdsAreReadFromTheKernelsTree)
{
    auto pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
    const fs::path root = ::mkdtemp (pattern.data());

    const auto write = [&root] (const std::string& file, const std::string& text)
    {
        fs::create_directories ((root / file).parent_path());
        std::ofstream (root / file) << text << "\n";
    };

    for (const std::string device : { "0000:05:00.0", "0000:03:00.0" })
    {
        const auto folder = "bus/pci/devices/" + device + "/";
        write (folder + "class", "0x0c0010");
        write (folder + "vendor", "0x104c");
        write (folder + "device", "0x8025");
        write (folder + "subsystem_vendor", "0x1043");
        write (folder + "subsystem_device", "0x0001");
        write (folder + "revision", "0x1");
    }

    write ("bus/pci/devices/0000:00:01.0/class", "0x0c0330"); // USB
    write ("bus/firewire/devices/fw1/vendor", "0x000a35");
    write ("bus/firewire/devices/fw1/model", "0x10000d");

    EXPECT_EQ (findHostControllers (root),
               (std::vector<std::string> { "PCI\\VEN_104C&DEV_8025&SUBSYS_00011043&REV_01\\0000:03:00.0",
                                           "PCI\\VEN_104C&DEV_8025&SUBSYS_00011043&REV_01\\0000:05:00.0" }));

    const auto ids = readFireWireIds (root, "/devices/pci0000:00/0000:05:00.0/fw1/fw1.0/sound/card2");
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
    const auto parse = [] (std::vector<std::string> words, Options& options)
    {
        std::vector<char*> arguments;
        words.insert (words.begin(), "quendel-pipewire");

        for (auto& word : words)
            arguments.push_back (word.data());

        arguments.push_back (nullptr);
        return parseOptions (static_cast<int> (words.size()), arguments.data(), options);
    };

    Options options;
    EXPECT_EQ (parse ({ "--device", "A", "--device=B", "--machine", "/m", "--all" }, options), "");
    EXPECT_EQ (options.devices, (std::vector<std::string> { "A", "B" }));
    EXPECT_EQ (options.machine, "/m");
    EXPECT_TRUE (options.servesAll);

    for (const auto& [word, error] : { std::pair { "--device", "--device needs a value" },
                                       std::pair { "--wrong", "--wrong: no such option" },
                                       std::pair { "word", "word: options only, please" },
                                       std::pair { "--machine=", "--machine: a folder" } })
        EXPECT_EQ (parse ({ word }, options), error);
}

} // namespace
