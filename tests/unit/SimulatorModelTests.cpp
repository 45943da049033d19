#include "drivers/simulator/model/DeviceModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{
using namespace Machine;
using namespace Simulation;
using namespace DriverProtocol;

constexpr std::int64_t second = 10'000'000;
constexpr std::int64_t start = 100 * second;
constexpr std::int64_t period = 256 * second / 48000;

/** A model, and the requests that a program sends to it.

    The wire structs are packed: their members are copied, by a plus sign, before anything takes a reference to them.
*/
class SimulatorModel : public testing::Test
{
protected:
    SimulatorModel() { model->reset (config, start); }

    CommandEnvelope command (CommandCode code, std::uint32_t parameter = 0)
    {
        CommandEnvelope envelope { {}, code, { parameter } };
        const auto reply =
            model->handle (IOCTL_DEVICE_COMMAND, &envelope, sizeof (envelope), &envelope, sizeof (envelope));
        EXPECT_EQ (reply.error, noError);
        EXPECT_EQ (reply.outputSize, sizeof (envelope));
        EXPECT_EQ (reply.mapsStatistics, code == MapStatistics);
        return envelope;
    }

    TransactionBlock accessCounters (FirmwareCounterAccess access = ReadFirmwareCounters)
    {
        constexpr std::uint32_t stale = 77;
        TransactionBlock block { stale, fullLength, {}, 0, AccessFirmwareCounters, stale, { access } };
        const auto reply = model->handle (IOCTL_DEVICE_TRANSACTION, &block, sizeof (block), &block, sizeof (block));
        EXPECT_EQ (reply.error, noError);
        EXPECT_EQ (reply.outputSize, sizeof (block));
        EXPECT_EQ (block.status | block.deviceStatus, 0U);
        return block;
    }

    /** Overflows and underruns. */
    std::uint32_t countGlitches()
    {
        const auto counters = accessCounters();
        return counters.words[overflowsWord] + counters.words[underrunsWord];
    }

    EventLogEntry readEntry (std::uint32_t index)
    {
        const auto envelope = command (ReadEventEntry, index);
        EventLogEntry entry;
        std::memcpy (&entry, envelope.words, sizeof (entry));
        return entry;
    }

    std::vector<EventLogEntry> readLog()
    {
        std::vector<EventLogEntry> entries;

        for (auto entry = readEntry (0); entry.type != noSuchEntry && entries.size() < EventLog::maximumLength;)
        {
            entries.push_back (entry);
            entry = readEntry (static_cast<std::uint32_t> (entries.size()));
        }

        return entries;
    }

    static bool isOf (const EventLogEntry& entry, EventType type)
    {
        return entry.type == static_cast<std::uint32_t> (type);
    }

    std::ptrdiff_t countEvents (EventType type)
    {
        const auto log = readLog();
        return std::count_if (log.begin(), log.end(), [type] (const auto& entry) { return isOf (entry, type); });
    }

    DeviceConfig config;
    std::unique_ptr<DeviceModel> model = std::make_unique<DeviceModel>();
};

TEST_F (SimulatorModel, ResetEmptiesTheStatisticsAndClearTheCounters)
{
    model->glitch();
    model->advance (start + second);
    EXPECT_GT (+accessCounters().words[syncCountWord], 0U);

    command (ResetStatistics);
    const auto empty = model->getStatistics();
    EXPECT_EQ (+empty.recordBufferCount, 0);
    EXPECT_EQ (+empty.hostMaximum, 0);
    EXPECT_EQ (+empty.offsetMaximum, StatisticsBlock::noMaximum);
    EXPECT_EQ (+empty.offsetMinimum, StatisticsBlock::noMinimum);

    // The firmware's counters are another matter.
    EXPECT_EQ (countGlitches(), 1U);
    accessCounters (ClearFirmwareCounters);
    EXPECT_EQ (countGlitches(), 0U);
    EXPECT_EQ (+accessCounters().words[syncCountWord], 0U);

    model->advance (start + 2 * second);
    EXPECT_NEAR (+model->getStatistics().recordBufferCount, 187, 1);
    EXPECT_LT (+model->getStatistics().hostMaximum, period);
}

TEST_F (SimulatorModel, GlitchShowsEverywhere)
{
    const auto numReported = countEvents (EventType::debugCounts);

    for (std::uint32_t number = 1; number <= 8; ++number)
    {
        command (ResetStatistics);
        model->glitch();
        model->advance (start + std::int64_t { number } * 3 * period);

        const auto& block = model->getStatistics();
        EXPECT_EQ (countGlitches(), number);
        EXPECT_GT (+block.hostMaximum, period);
        EXPECT_GT (std::max (+block.recordMaximum, +block.playbackMaximum), period + period / 3);
    }

    EXPECT_GT (+accessCounters().words[overflowsWord], 0U);
    EXPECT_GT (+accessCounters().words[underrunsWord], 0U);
    EXPECT_EQ (countEvents (EventType::debugCounts), numReported + 8);

    // Left alone, it has one now and then.
    accessCounters (ClearFirmwareCounters);

    for (auto minute = 1; minute <= 10; ++minute)
        model->advance (start + std::int64_t { minute } * 60 * second);

    EXPECT_NEAR (countGlitches(), 16.5, 8.5);
}

TEST_F (SimulatorModel, LogKeepsTheNewestEntries)
{
    model->advance (start + 59 * second);
    auto log = readLog();
    ASSERT_EQ (log.size(), EventLog::maximumLength);
    EXPECT_GT (+log.back().timestamp, start + 59 * second - second / 10);
    EXPECT_EQ (+readEntry (EventLog::maximumLength).type, noSuchEntry);
    EXPECT_EQ (+readEntry (0xFFFFFFFF).type, noSuchEntry);

    for (const auto length : { 0U, 1U, 16383U, 16384U, 20000U, 10U })
    {
        model->fillEventLog (length);
        log = readLog();
        ASSERT_EQ (log.size(), std::min (length, EventLog::maximumLength));
        EXPECT_TRUE (std::ranges::is_sorted (log, {}, [] (auto entry) { return entry.timestamp; }));
    }

    const auto newest = log.back().timestamp;
    model->advance (start + 60 * second);
    log = readLog();
    ASSERT_EQ (log.size(), 10U);
    EXPECT_GT (+log.front().timestamp, newest);
}

TEST_F (SimulatorModel, LogStandsStillWhileItIsRead)
{
    model->fillEventLog (1000);
    const auto expected = readLog();

    // The stream goes on between one entry and the next.
    auto now = start;

    for (std::uint32_t i = 0; i < 1000; ++i)
    {
        ASSERT_EQ (+readEntry (i).timestamp, +expected[i].timestamp) << i;
        model->advance (now += second / 100);
    }

    // The reader has not seen the end, but has given up.
    model->advance (now + 3 * second);
    EXPECT_GT (+readEntry (0).timestamp, +expected.back().timestamp);
}

TEST_F (SimulatorModel, TakesOddTimes)
{
    const auto count = model->getStatistics().recordBufferCount;
    model->advance (INT64_MIN);
    model->advance (INT64_MAX);
    EXPECT_EQ (+model->getStatistics().recordBufferCount, count);

    // A computer that slept does not make up for the whole night.
    model->advance (start + 8 * (3600 * second));
    EXPECT_EQ (+model->getStatistics().recordBufferCount, count + 60 * 48000 / 256);
}
} // namespace
