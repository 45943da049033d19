#include "drivers/simulator/model/DeviceModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace
{
using namespace Machine;
using namespace Simulation;
using namespace DriverProtocol;

constexpr std::int64_t second = 10'000'000;

/** A model, and the requests that a program sends to it.

    The wire structs are packed: their members are copied, by a plus sign, before anything takes a reference to them.
*/
class SimulatorModel : public testing::Test
{
protected:
    SimulatorModel() { model->reset ({}, now); }

    CommandEnvelope command (CommandCode code, std::uint32_t parameter = 0)
    {
        CommandEnvelope envelope { {}, code, { parameter } };
        const auto size = sizeof (envelope);
        EXPECT_EQ (model->handle (IOCTL_DEVICE_COMMAND, &envelope, size, &envelope, size).outputSize, size);
        return envelope;
    }

    TransactionBlock accessCounters (FirmwareCounterAccess access = ReadFirmwareCounters)
    {
        TransactionBlock block { 77, fullLength, {}, 0, AccessFirmwareCounters, 77, { access } };
        const auto size = sizeof (block);
        EXPECT_EQ (model->handle (IOCTL_DEVICE_TRANSACTION, &block, size, &block, size).outputSize, size);
        EXPECT_EQ (block.status | block.deviceStatus, 0U);
        return block;
    }

    std::vector<EventLogEntry> readLog()
    {
        std::vector<EventLogEntry> entries;

        for (std::uint32_t index = 0; index <= EventLog::maximumLength; ++index)
        {
            const auto envelope = command (ReadEventEntry, index);
            EventLogEntry entry;
            std::memcpy (&entry, envelope.words, sizeof (entry));

            if (entry.type == noSuchEntry)
                break;

            entries.push_back (entry);
            model->advance (now += second / 100); // the stream goes on meanwhile
        }

        return entries;
    }

    std::int64_t now = 100 * second;
    std::unique_ptr<DeviceModel> model = std::make_unique<DeviceModel>();
};

TEST_F (SimulatorModel, ResetEmptiesTheStatisticsAndClearTheCounters)
{
    model->glitch();
    model->advance (now + second);
    command (ResetStatistics);
    const auto empty = model->getStatistics();
    EXPECT_EQ (+empty.recordBufferCount, 0);
    EXPECT_EQ (+empty.hostMaximum, 0);
    EXPECT_EQ (+empty.offsetMaximum, StatisticsBlock::noMaximum);
    EXPECT_EQ (+empty.offsetMinimum, StatisticsBlock::noMinimum);

    // The firmware's counters are another matter.
    auto counters = accessCounters();
    EXPECT_EQ (counters.words[overflowsWord] + counters.words[underrunsWord], 1U);
    EXPECT_GT (+counters.words[syncCountWord], 0U);
    accessCounters (ClearFirmwareCounters);
    counters = accessCounters();
    EXPECT_EQ (counters.words[overflowsWord] | counters.words[underrunsWord] | counters.words[syncCountWord], 0U);
}

TEST_F (SimulatorModel, LogKeepsTheNewestEntriesAndStandsStillWhileItIsRead)
{
    model->advance (now += 59 * second);

    for (const auto length : { 16384U, 20000U, 0U, 10U })
    {
        model->fillEventLog (length);
        const auto beginning = now;
        const auto log = readLog();
        ASSERT_EQ (log.size(), std::min (length, EventLog::maximumLength));
        EXPECT_TRUE (std::ranges::is_sorted (log, {}, [] (auto entry) { return entry.timestamp; }));
        EXPECT_TRUE (log.empty() || log.back().timestamp <= beginning);
    }

    // A reader that has given up before the end holds it no longer than a second.
    const auto beginning = now;
    command (ReadEventEntry, 0);
    model->advance (now += 3 * second);
    EXPECT_GT (+readLog().front().timestamp, beginning);
}
} // namespace
