#include "tests/unit/support/Devices.h"

#include "protocol/EventType.h"
#include "protocol/MachineLayout.h"
#include "stats/StatisticsLayout.h"
#include <cstring>
#include <gtest/gtest.h>

using namespace DriverProtocol;
using Reply = TestDriver::Reply;
using Bytes = Machine::Bytes;

namespace
{

using Words = std::vector<std::uint32_t>;

Bytes bytesOf (const Words& words, std::size_t size)
{
    Bytes bytes (size);
    std::memcpy (bytes.data(), words.data(), words.size() * sizeof (words[0]));
    return bytes;
}

/** One opened device and its driver. */
struct DriverProtocolTests : public testing::Test, public OneDevice
{
    EventLogEntry entry {};
    FirmwareCounters counters {};

    void SetUp() override
    {
        ASSERT_NE (device, nullptr);
        ASSERT_EQ (device->open(), 0);
        driver.forgetRecords();
    }

    void answerCountersWith (const Words& words)
    {
        driver.answerWith (TestDriver::readCounters, Reply::success (bytesOf (words, sizeof (TransactionBlock))));
    }
};

TEST_F (DriverProtocolTests, requestsCarryTheirWordsAndNothingElse)
{
    answerCountersWith ({ 0, 0, 0xAB, 0xCD000000 });
    device->readStreamStatus();
    device->readEventEntry (0x1234, entry);
    device->resetStatistics();
    device->readFirmwareCounters (counters);
    device->probe();

    struct Request
    {
        std::size_t size;
        std::uint32_t outputSize;
        Words words; // followed by zeros
    };

    // A reset takes two requests. The driver's own words of a transaction go back to it with the next one.
    const Request expected[] { { 64, 64, { 0, 0, 3 } },           { 64, 64, { 0, 0, 0x13, 0x1234 } },
                               { 64, 64, { 0, 0, 8 } },           { 92, 92, { 0, 22, 0, 0, 0, 4, 0, 0xFFFFFFFF } },
                               { 92, 92, { 0, 22, 0, 0, 0, 4 } }, { 28, 64, { 0, 6, 0xAB, 0xCD000000, 0, 1 } } };
    const auto records = driver.getRecords();
    ASSERT_EQ (records.size(), std::size (expected));

    for (std::size_t i = 0; i < records.size(); ++i)
    {
        EXPECT_EQ (records[i].input, bytesOf (expected[i].words, expected[i].size)) << i;
        EXPECT_EQ (records[i].outputSize, expected[i].outputSize) << i;
    }
}

TEST_F (DriverProtocolTests, statusesReduceToOneResult)
{
    for (const auto& [status, deviceStatus, expected] : { std::tuple { 0u, 0u, 0 },
                                                          std::tuple { 0u, 12u, 0 },
                                                          std::tuple { 0u, 11u, 2 },
                                                          std::tuple { 0x102u, 0u, -1 },
                                                          std::tuple { 0xC0120090u, 12u, -1 },
                                                          std::tuple { 1u, 12u, 1 } })
    {
        answerCountersWith ({ status, 0, 0, 0, 0, 0, deviceStatus });
        counters[overflowsWord] = 99;
        EXPECT_EQ (device->readFirmwareCounters (counters), expected) << status << " " << deviceStatus;
        EXPECT_EQ (counters[overflowsWord], expected == 0 ? 0u : 99u);
    }
}

TEST_F (DriverProtocolTests, failuresLeaveTheFigures)
{
    driver.streamStatusWords = { 1, 2, 48000, 4, 256, 6, 7, 8, 9 };
    EXPECT_EQ (device->readStreamStatus(), 0);
    driver.setOverride ([] (TestDriver::Kind, int) { return Reply::failure (1); });
    driver.streamStatusWords = {};
    EXPECT_EQ (device->readStreamStatus(), 1);
    EXPECT_EQ (device->getSampleRate(), 48000u);
    EXPECT_EQ (device->getBufferSize(), 256u);

    counters[fifoLevelWord] = 7;
    EXPECT_EQ (device->readFirmwareCounters (counters), 1);
    EXPECT_EQ (counters[fifoLevelWord], 7u);
    EXPECT_EQ (device->readEventEntry (0, entry), 1);
    EXPECT_EQ (device->probe(), 1);

    // The firmware's counters are cleared whatever the driver says.
    device->resetStatistics();
    EXPECT_EQ (driver.count (TestDriver::clearCounters), 1);
}

/** A reply overwrites the request; what a short reply leaves out stays as it was sent. */
TEST_F (DriverProtocolTests, requestAndReplyShareOneBuffer)
{
    driver.counterWords = { 5, 6, 0, 0, 512 };
    device->readFirmwareCounters (counters);
    driver.answerWith (TestDriver::readCounters, Reply::success (Bytes (28)));
    EXPECT_EQ (device->readFirmwareCounters (counters), 0);
    EXPECT_EQ (counters[overflowsWord], 0u);
    EXPECT_EQ (counters[fifoLevelWord], 512u);

    driver.answerWith (TestDriver::eventEntry, Reply::success ({}));
    EXPECT_EQ (device->readEventEntry (3, entry), 0);
    EXPECT_EQ (entry.timestamp, 3);
}

/** A reply that is too short, too long or missing breaks the handle; opening the device again mends it. */
TEST_F (DriverProtocolTests, brokenRepliesBreakTheHandleOnly)
{
    // An empty packet closes the connection in the middle of the request.
    for (const std::size_t size : { 0u, 1u, 3u, 4u + 64 + 1, 4000u })
    {
        Reply broken;
        broken.packet.resize (size);
        driver.answerWith (TestDriver::streamStatus, broken);
        EXPECT_EQ (device->readStreamStatus(), 1) << size;
        driver.setOverride ({});
        EXPECT_EQ (device->readStreamStatus(), 1) << size;
        device->reopen();
        EXPECT_EQ (device->readStreamStatus(), 0) << size;
    }

    driver.kill();
    device->reopen();
    EXPECT_EQ (device->open(), 1);
    EXPECT_EQ (device->readStreamStatus(), 1);
}

#define ROW(part, Record, field, meaning) std::tuple (part, offsetof (Record, field), sizeof (Record::field), meaning)

/** Drivers are written from docs/driver-interface.md, so its class id, codes, offsets and sizes must match the code. */
TEST (DriverInterfaceTests, thePageSaysWhatTheCodeDoes)
{
    const auto page = juce::File (QUENDEL_ROOT "docs/driver-interface.md").loadFileAsString();
    EXPECT_TRUE (page.contains ("Class: `" + juce::String (interfaceClassText) + "`."));

    for (const auto& [code, name] :
         { std::pair { IOCTL_DEVICE_COMMAND, "COMMAND" }, std::pair { IOCTL_DEVICE_TRANSACTION, "TRANSACTION" } })
        EXPECT_TRUE (page.contains (juce::String::formatted ("| `0x%X` | `IOCTL_DEVICE_%s` |", code, name))) << name;

    const auto rowOf = [&page] (const juce::String& part, std::size_t offset, std::size_t size)
    {
        return page.fromFirstOccurrenceOf ("# " + part + "\n", false, false)
            .upToFirstOccurrenceOf ("\n#", false, false)
            .fromFirstOccurrenceOf ("| " + juce::String (offset) + " | " + juce::String (size) + " | ", false, false)
            .upToFirstOccurrenceOf ("\n", false, false);
    };

    constexpr auto capabilities = "Capability record", transaction = "Transaction block",
                   status = "3, read the stream's status", map = "7, map the statistics",
                   log = "19 (0x13), read an entry of the event log", counters = "4, access the firmware's counters";

    for (const auto& [part, offset, size, meaning] :
         { ROW (capabilities, CapabilityRecord, flags, "flags: bit 4, the device has a DSP; bit 5"),
           ROW (capabilities, CapabilityRecord, vendor, "the vendor's"),
           ROW (capabilities, CapabilityRecord, type, "type"),
           ROW (capabilities, CapabilityRecord, firstProbeCount, "first count"),
           ROW (capabilities, CapabilityRecord, secondProbeCount, "second count"),
           ROW (capabilities, CapabilityRecord, dspVersion, "version of the DSP"),
           ROW (capabilities, CapabilityRecord, armVersion, "version of the ARM"),
           ROW (capabilities, CapabilityRecord, fpgaVersion, "version of the FPGA"),
           ROW ("Command envelope", CommandEnvelope, code, "command code"),
           ROW (status, CommandEnvelope, words[sampleRateWord], "sample rate"),
           ROW (status, CommandEnvelope, words[bufferSizeWord], "buffer size"),
           ROW (map, CommandEnvelope, words[0], "address"),
           ROW (log, EventLogEntry, timestamp, "time"),
           ROW (log, EventLogEntry, frequency, "the counter's rate"),
           ROW (log, EventLogEntry, type, "kind"),
           ROW (log, EventLogEntry, param, "the event's parameter"),
           ROW (log, EventLogEntry, auxValue, "a small signed"),
           ROW (transaction, TransactionBlock, status, "what the last reply"),
           ROW (transaction, TransactionBlock, length, "length"),
           ROW (transaction, TransactionBlock, code, "request code"),
           ROW (transaction, TransactionBlock, deviceStatus, "what the last reply"),
           ROW (transaction, TransactionBlock, words, "16 words") })
        EXPECT_TRUE (rowOf (part, offset, size).startsWith (meaning)) << part << " " << offset << ": " << meaning;

    for (const auto& row : StatisticsLayout::rows)
    {
        if (! row.isItem())
            continue;

        const auto isCount = row.kind == RowKind::bufferCount;
        const auto what = isCount ? "number" : juce::String (row.label).upToFirstOccurrenceOf (" ", false, false);
        const auto said = row.isOfFirmware() ? rowOf (counters, TransactionBlock::headerSize + 4 * row.source, 4)
                                             : rowOf ("Statistics block", row.source, isCount ? 4 : 8);
        EXPECT_TRUE (said.containsIgnoreCase (what)) << row.label << " at " << row.source << ": " << said;
    }

    for (std::size_t type = 0; type < std::size (eventNames); ++type)
    {
        const auto cells = "| " + juce::String (type) + " | " + eventNames[type] + " |";
        EXPECT_TRUE (page.contains (cells)) << cells;
    }
}

/** The same for the names in docs/machine-folder.md. */
TEST (DriverInterfaceTests, theMachineFolderIsLaidOutAsItsPageSays)
{
    using namespace MachineLayout;
    const auto page = juce::File (QUENDEL_ROOT "docs/machine-folder.md").loadFileAsString();
    const auto interface = juce::String ("| `") + interfacesFolder + "/<name>/";

    for (const auto& name : { interface + registryFolder + "/" + capabilitiesValue,
                              interface + registryFolder + "/" + nameValue,
                              interface + driverSocket,
                              juce::String ("| `") + controllersFolder + "/<name>" })
        EXPECT_TRUE (page.contains (name + "` |")) << name;
}

} // namespace
