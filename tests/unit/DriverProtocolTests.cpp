#include "device/DeviceList.h"
#include "tests/unit/support/TestDriver.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace DriverProtocol;
using Reply = TestDriver::Reply;
using Bytes = Machine::Bytes;

namespace
{

/** One opened device and its driver. */
struct DriverProtocolTests : public testing::Test
{
    TestMachine machine;
    TestDriver driver { machine };
    DeviceList devices;
    HwDevice::Ptr device = devices.getDevice (0);

    void SetUp() override
    {
        ASSERT_NE (device, nullptr);
        ASSERT_EQ (device->open(), 0);
        driver.forgetRecords();
    }

    /** Answers requests of one kind with these bytes, and success. */
    void answerWith (TestDriver::Kind answered, const Bytes& output)
    {
        driver.setOverride (
            [=] (TestDriver::Kind kind, int) -> std::optional<Reply>
            {
                if (kind != answered)
                    return {};

                return Reply::success (output);
            });
    }

    void answerTransactionsWith (std::uint32_t status, std::uint32_t deviceStatus)
    {
        TransactionBlock block {};
        block.status = status;
        block.deviceStatus = deviceStatus;
        const auto* bytes = reinterpret_cast<const std::uint8_t*> (&block);
        answerWith (TestDriver::readCounters, Bytes (bytes, bytes + sizeof (block)));
    }
};

std::uint32_t wordAt (const Bytes& bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    std::memcpy (&word, bytes.data() + offset, sizeof (word));
    return word;
}

TEST_F (DriverProtocolTests, requestsCarryTheirWordsAndNothingElse)
{
    EventLogEntry entry;
    FirmwareCounters counters;
    device->readStreamStatus();
    device->readEventEntry (0x1234, entry);
    device->resetStatistics();
    device->readFirmwareCounters (counters);
    device->probe();

    const auto records = driver.getRecords();
    ASSERT_EQ (records.size(), 6u);

    const auto expectCommand = [] (const TestDriver::Record& record, std::uint32_t code, std::uint32_t parameter)
    {
        Bytes expected (64);
        std::memcpy (expected.data() + 8, &code, 4);
        std::memcpy (expected.data() + 12, &parameter, 4);
        EXPECT_EQ (record.input, expected);
        EXPECT_EQ (record.outputSize, 64u);
    };

    expectCommand (records[0], 3, 0);
    expectCommand (records[1], 0x13, 0x1234);
    expectCommand (records[2], 8, 0);

    const auto expectCounters = [] (const TestDriver::Record& record, std::uint32_t parameter)
    {
        ASSERT_EQ (record.input.size(), 92u);
        EXPECT_EQ (record.outputSize, 92u);
        EXPECT_EQ (wordAt (record.input, 4), 22u);
        EXPECT_EQ (wordAt (record.input, 16), 0u);
        EXPECT_EQ (wordAt (record.input, 20), 4u);
        EXPECT_EQ (wordAt (record.input, 28), parameter);
    };

    expectCounters (records[3], 0xFFFFFFFF);
    expectCounters (records[4], 0);

    EXPECT_EQ (records[5].input.size(), 28u);
    EXPECT_EQ (wordAt (records[5].input, 4), 6u);
    EXPECT_EQ (wordAt (records[5].input, 16), 0u);
    EXPECT_EQ (wordAt (records[5].input, 20), 1u);
    EXPECT_EQ (records[5].outputSize, 64u);
}

TEST_F (DriverProtocolTests, driversWordsOfATransactionGoBackWithTheNextOne)
{
    Bytes reply (92);
    reply[8] = 0xAB;
    reply[15] = 0xCD;
    answerWith (TestDriver::readCounters, reply);

    FirmwareCounters counters;
    device->readFirmwareCounters (counters);
    device->probe();

    const auto probe = driver.getRecords().back().input;
    EXPECT_EQ (wordAt (probe, 8), 0xABu);
    EXPECT_EQ (wordAt (probe, 12), 0xCD000000u);
}

TEST_F (DriverProtocolTests, statusesReduceToOneResult)
{
    struct Case
    {
        std::uint32_t status, deviceStatus;
        TransactionResult expected;
    };

    for (const auto& c : { Case { 0, 0, 0 },
                           Case { 0, 12, 0 },
                           Case { 0, 11, 2 },
                           Case { 0x102, 0, -1 },
                           Case { 0xC0120090, 12, -1 },
                           Case { 1, 0, 1 },
                           Case { 1, 12, 1 } })
    {
        answerTransactionsWith (c.status, c.deviceStatus);

        FirmwareCounters counters;
        counters.overflows = 99;
        EXPECT_EQ (device->readFirmwareCounters (counters), c.expected) << c.status << " " << c.deviceStatus;
        EXPECT_EQ (counters.overflows, c.expected == 0 ? 0u : 99u);
    }
}

TEST_F (DriverProtocolTests, failuresLeaveTheFigures)
{
    driver.streamStatusWords = { 1, 2, 48000, 4, 256, 6, 7, 8, 9 };
    EXPECT_EQ (device->readStreamStatus(), 0);
    driver.fail (TestDriver::streamStatus);
    driver.streamStatusWords = {};
    EXPECT_EQ (device->readStreamStatus(), 1);
    EXPECT_EQ (device->getSampleRate(), 48000u);
    EXPECT_EQ (device->getBufferSize(), 256u);

    driver.setOverride ([] (TestDriver::Kind, int) { return Reply::failure (1); });
    EventLogEntry entry;
    FirmwareCounters counters;
    counters.fifoLevel = 7;
    EXPECT_EQ (device->readEventEntry (0, entry), 1);
    EXPECT_EQ (device->readFirmwareCounters (counters), 1);
    EXPECT_EQ (counters.fifoLevel, 7u);
    EXPECT_EQ (device->probe(), 1);
    device->resetStatistics();
}

TEST_F (DriverProtocolTests, countersComeFromTheirWords)
{
    for (std::uint32_t i = 0; i < driver.counterWords.size(); ++i)
        driver.counterWords[i] = 0x80000000 + 28 + 4 * i;

    FirmwareCounters counters;
    ASSERT_EQ (device->readFirmwareCounters (counters), 0);
    EXPECT_EQ (counters.overflows, 0x80000000u + 28);
    EXPECT_EQ (counters.underruns, 0x80000000u + 32);
    EXPECT_EQ (counters.fifoLevel, 0x80000000u + 44);
    EXPECT_EQ (counters.unshown, 0x80000000u + 48);
    EXPECT_EQ (counters.syncCount, 0x80000000u + 52);
}

/** A reply overwrites the request, and what it leaves out stays as it was asked. */
TEST_F (DriverProtocolTests, requestAndReplyShareOneBuffer)
{
    driver.streamStatusWords = { 0, 0, 48000, 0, 256, 0, 0, 0, 0 };
    driver.counterWords = { 5, 6, 0, 0, 512, 0, 7 };
    FirmwareCounters counters;
    device->readStreamStatus();
    device->readFirmwareCounters (counters);

    answerWith (TestDriver::streamStatus, Bytes (24, 1));
    EXPECT_EQ (device->readStreamStatus(), 0);
    EXPECT_EQ (device->getSampleRate(), 0x01010101u);
    EXPECT_EQ (device->getBufferSize(), 0u);

    answerWith (TestDriver::readCounters, Bytes (28));
    EXPECT_EQ (device->readFirmwareCounters (counters), 0);
    EXPECT_EQ (counters.overflows, 0u);
    EXPECT_EQ (counters.fifoLevel, 512u);

    EventLogEntry entry;
    answerWith (TestDriver::eventEntry, {});
    EXPECT_EQ (device->readEventEntry (3, entry), 0);
    EXPECT_EQ (entry.timestamp, 3);
}

/** A reply too short or too long breaks the handle; opening the device again mends it. */
TEST_F (DriverProtocolTests, brokenRepliesBreakTheHandleOnly)
{
    for (const std::size_t size : { 1u, 3u, 4u + 64 + 1, 4000u })
    {
        driver.setOverride (
            [=] (TestDriver::Kind kind, int) -> std::optional<Reply>
            {
                if (kind != TestDriver::streamStatus)
                    return {};

                Reply reply;
                reply.packet.resize (size);
                return reply;
            });

        EXPECT_EQ (device->readStreamStatus(), 1) << size;
        driver.setOverride ({});
        EXPECT_EQ (device->readStreamStatus(), 1) << size;
        device->reopen();
        EXPECT_EQ (device->readStreamStatus(), 0) << size;
    }
}

TEST_F (DriverProtocolTests, driverThatDiesFailsTheRequest)
{
    driver.setOverride (
        [] (TestDriver::Kind kind, int) -> std::optional<Reply>
        {
            if (kind != TestDriver::probe)
                return {};

            return Reply {}; // closes the connection in the middle of the request
        });

    EXPECT_EQ (device->probe(), 1);
    EXPECT_EQ (device->readStreamStatus(), 1);

    driver.kill();
    device->reopen();
    EXPECT_EQ (device->open(), 1);
    EXPECT_EQ (device->readStreamStatus(), 1);
}

/** Drivers are written from docs/driver-interface.md: its class id, codes, offsets and sizes are the code's. */
TEST (DriverInterfaceTests, thePageSaysWhatTheCodeDoes)
{
    const auto page = juce::File (QUENDEL_DOCS_FOLDER "/driver-interface.md").loadFileAsString();
    const auto section = [&page] (const juce::String& heading)
    { return page.fromFirstOccurrenceOf ("# " + heading, false, false).upToFirstOccurrenceOf ("\n#", false, false); };

    EXPECT_TRUE (section ("The device interface").contains ("Class: `" + juce::String (interfaceClassText) + "`."));

    for (const auto& [code, name] :
         { std::pair { IOCTL_DEVICE_COMMAND, "COMMAND" }, std::pair { IOCTL_DEVICE_TRANSACTION, "TRANSACTION" } })
        EXPECT_TRUE (section ("Control codes")
                         .contains ("| `0x" + juce::String::toHexString (static_cast<int> (code)).toUpperCase()
                                    + "` | `IOCTL_DEVICE_" + name));

    constexpr std::size_t word = 4;
    const auto reply = [] (std::size_t index) { return offsetof (CommandEnvelope, words) + word * index; };
    const auto counter = [] (std::size_t index) { return offsetof (TransactionBlock, words) + word * index; };
    const auto heading = [] (std::uint32_t code, const char* name) { return juce::String (code) + name; };
    const auto status = heading (ReadStreamStatus, ", read the stream's status");
    const auto map = heading (MapStatistics, ", map the statistics");
    const auto log = heading (ReadEventEntry, " (0x13), read an entry of the event log");
    const auto counters = heading (AccessFirmwareCounters, ", access the firmware's counters");
    EXPECT_TRUE (section (heading (ResetStatistics, ", reset the statistics")).isNotEmpty());
    EXPECT_TRUE (section (heading (ProbeDevice, ", probe the device")).isNotEmpty());

    struct Row
    {
        juce::String section;
        std::size_t offset, size;
        const char* meaning; // its beginning
    };

#define ROW(section, Record, field, meaning)                               \
    Row                                                                    \
    {                                                                      \
        section, offsetof (Record, field), sizeof (Record::field), meaning \
    }
    for (const auto& row :
         { ROW ("Capability record", CapabilityRecord, flags, "flags: bit 4, the device has a DSP; bit 5"),
           ROW ("Capability record", CapabilityRecord, vendor, "the vendor's"),
           ROW ("Capability record", CapabilityRecord, type, "type"),
           ROW ("Capability record", CapabilityRecord, firstProbeCount, "first count"),
           ROW ("Capability record", CapabilityRecord, secondProbeCount, "second count"),
           ROW ("Capability record", CapabilityRecord, dspVersion, "version of the DSP"),
           ROW ("Capability record", CapabilityRecord, armVersion, "version of the ARM"),
           ROW ("Capability record", CapabilityRecord, fpgaVersion, "version of the FPGA"),
           ROW ("Command envelope", CommandEnvelope, code, "command code"),
           ROW ("Command envelope", CommandEnvelope, words, "13 words"),
           Row { status, reply (sampleRateWord), word, "sample rate" },
           Row { status, reply (bufferSizeWord), word, "buffer size" },
           Row { map, reply (0), word, "address" },
           ROW ("Transaction block", TransactionBlock, status, ""),
           ROW ("Transaction block", TransactionBlock, length, "length"),
           ROW ("Transaction block", TransactionBlock, driverWords, "the driver's own"),
           ROW ("Transaction block", TransactionBlock, requestClass, "request class"),
           ROW ("Transaction block", TransactionBlock, code, "request code"),
           ROW ("Transaction block", TransactionBlock, deviceStatus, ""),
           ROW ("Transaction block", TransactionBlock, words, "16 words"),
           Row { counters, counter (overflowsWord), word, "overflows" },
           Row { counters, counter (underrunsWord), word, "underruns" },
           Row { counters, counter (fifoLevelWord), word, "FIFO level" },
           Row { counters, counter (syncCountWord), word, "sync count" },
           ROW ("Statistics block", StatisticsBlock, playbackAverage, "playback, average"),
           ROW ("Statistics block", StatisticsBlock, playbackMaximum, "playback, maximum"),
           ROW ("Statistics block", StatisticsBlock, recordAverage, "record, average"),
           ROW ("Statistics block", StatisticsBlock, recordMaximum, "record, maximum"),
           ROW ("Statistics block", StatisticsBlock, wakeupAverage, "wake-up of the host, average"),
           ROW ("Statistics block", StatisticsBlock, wakeupMaximum, "wake-up, maximum"),
           ROW ("Statistics block", StatisticsBlock, hostAverage, "time that the host takes, average"),
           ROW ("Statistics block", StatisticsBlock, hostMaximum, "time that the host takes, maximum"),
           ROW ("Statistics block", StatisticsBlock, playbackBufferCount, "playback, number"),
           ROW ("Statistics block", StatisticsBlock, recordBufferCount, "record, number"),
           ROW ("Statistics block", StatisticsBlock, offsetAverage, "offset between"),
           ROW ("Statistics block", StatisticsBlock, offsetMaximum, "offset, maximum"),
           ROW ("Statistics block", StatisticsBlock, offsetMinimum, "offset, minimum") })
    {
        const auto cells = juce::String (row.offset) + " | " + juce::String (row.size) + " | " + row.meaning;
        EXPECT_TRUE (section (row.section).contains ("| " + cells)) << row.section << ": " << cells;
    }

    for (const auto& [field, size, meaning] : { std::tuple { offsetof (EventLogEntry, timestamp), 8, "time" },
                                                { offsetof (EventLogEntry, frequency), 8, "the counter's rate" },
                                                { offsetof (EventLogEntry, type), 4, "kind" },
                                                { offsetof (EventLogEntry, param), 4, "the event's parameter" },
                                                { offsetof (EventLogEntry, auxValue), 1, "a small signed" } })
    {
        const auto cells =
            juce::String (reply (0) + field) + " | " + juce::String (field) + " | " + juce::String (size);
        EXPECT_TRUE (section (log).contains ("| " + cells + " | " + meaning)) << cells;
    }
}

} // namespace
