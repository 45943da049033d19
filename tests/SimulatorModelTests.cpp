#include "simulator/model/DeviceModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace
{
using namespace Simulation;
using namespace DriverProtocol;

constexpr std::int64_t second = 10'000'000;
constexpr std::int64_t start = 100 * second;

// The wire structs are packed: their members are copied before anything takes a reference to them.
using CommandWords = std::array<std::uint32_t, CommandEnvelope::numWords>;
using TransactionWords = std::array<std::uint32_t, TransactionBlock::numWords>;

struct Event
{
    std::int64_t timestamp, frequency;
    std::uint32_t type, param;

    bool operator== (const Event&) const = default;
};

/** A model, and the requests that a program sends to it. */
class SimulatorModel : public testing::Test
{
protected:
    SimulatorModel() { model->reset (config, start); }

    CommandWords command (CommandCode code, std::uint32_t parameter = 0)
    {
        CommandEnvelope envelope {};
        envelope.code = code;
        envelope.words[0] = parameter;

        const auto reply =
            model->handle (IOCTL_DEVICE_COMMAND, &envelope, sizeof (envelope), &envelope, sizeof (envelope));
        EXPECT_EQ (reply.error, noError);
        EXPECT_EQ (reply.outputSize, sizeof (envelope));
        EXPECT_EQ (reply.mapsStatistics, code == MapStatistics);

        CommandWords words;
        std::memcpy (words.data(), envelope.words, sizeof (words));
        return words;
    }

    TransactionWords accessCounters (FirmwareCounterAccess access = ReadFirmwareCounters)
    {
        TransactionBlock block {};
        block.status = 77;
        block.deviceStatus = 77;
        block.length = fullLength;
        block.code = AccessFirmwareCounters;
        block.words[0] = access;

        const auto reply = model->handle (IOCTL_DEVICE_TRANSACTION, &block, sizeof (block), &block, sizeof (block));
        EXPECT_EQ (reply.error, noError);
        EXPECT_EQ (reply.outputSize, sizeof (block));
        EXPECT_EQ (+block.status, 0U);
        EXPECT_EQ (+block.deviceStatus, 0U);

        TransactionWords words;
        std::memcpy (words.data(), block.words, sizeof (words));
        return words;
    }

    Event readEntry (std::uint32_t index)
    {
        const auto words = command (ReadEventEntry, index);
        EventLogEntry entry;
        std::memcpy (&entry, words.data(), sizeof (entry));
        return { entry.timestamp, entry.frequency, entry.type, entry.param };
    }

    std::vector<Event> readLog()
    {
        std::vector<Event> entries;

        for (std::uint32_t i = 0; i < EventLog::maximumLength; ++i)
        {
            if (const auto entry = readEntry (i); entry.type != noSuchEntry)
                entries.push_back (entry);
            else
                break;
        }

        return entries;
    }

    std::size_t countEvents (EventType type)
    {
        const auto log = readLog();
        return static_cast<std::size_t> (std::count_if (log.begin(),
                                                        log.end(),
                                                        [type] (const auto& e)
                                                        { return e.type == static_cast<std::uint32_t> (type); }));
    }

    DeviceConfig config;
    std::unique_ptr<DeviceModel> model = std::make_unique<DeviceModel>();
};

TEST_F (SimulatorModel, AveragesFollowTheBufferTime)
{
    const auto check = [this] (std::uint32_t rate, std::uint32_t samples, std::int64_t now)
    {
        const auto period = samples * second / rate;
        model->advance (now);
        const auto block = model->getStatistics();

        EXPECT_NEAR (static_cast<double> (+block.recordAverage), static_cast<double> (period), 4.0);
        EXPECT_NEAR (static_cast<double> (+block.playbackAverage), static_cast<double> (period), 4.0);
        EXPECT_GT (+block.recordMaximum, +block.recordAverage);
        EXPECT_GT (+block.playbackMaximum, +block.playbackAverage);
        EXPECT_GT (+block.wakeupAverage, second / 100'000);
        EXPECT_GT (+block.wakeupMaximum, +block.wakeupAverage);
        EXPECT_LT (+block.wakeupMaximum, period);
        EXPECT_GT (+block.hostAverage, period / 10);
        EXPECT_LT (+block.hostMaximum, period);
        EXPECT_LE (+block.offsetMinimum, +block.offsetAverage);
        EXPECT_LE (+block.offsetAverage, +block.offsetMaximum);
        EXPECT_GE (+block.offsetMinimum, 0);
        EXPECT_LT (+block.offsetMaximum, period);

        const auto status = command (ReadStreamStatus);
        EXPECT_EQ (status[sampleRateWord], rate);
        EXPECT_EQ (status[bufferSizeWord], samples);
        return block.recordBufferCount;
    };

    // It has been running for three seconds when it is first looked at.
    EXPECT_EQ (check (48000, 256, start), 562);
    EXPECT_EQ (check (48000, 256, start + 2 * second), 937);

    EXPECT_FALSE (model->setSampleRate (0));
    EXPECT_FALSE (model->setBufferSize (8193));
    EXPECT_TRUE (model->setSampleRate (96000));
    EXPECT_EQ (check (96000, 256, start + 4 * second), 750);
    EXPECT_TRUE (model->setBufferSize (64));
    EXPECT_EQ (check (96000, 64, start + 6 * second), 3000);
}

TEST_F (SimulatorModel, OffsetsOfSomeStreamsNeedToBeWrapped)
{
    auto numWrapped = 0;

    for (config.seed = 0; config.seed < 20; ++config.seed)
    {
        model->reset (config, start);
        const auto& block = model->getStatistics();
        numWrapped += block.offsetAverage > block.recordAverage / 2 ? 1 : 0;
    }

    EXPECT_GT (numWrapped, 3);
    EXPECT_LT (numWrapped, 17);
}

TEST_F (SimulatorModel, IsRepeatable)
{
    auto other = std::make_unique<DeviceModel>();
    other->reset (config, start);

    for (const auto now : { start + second / 3, start + 90 * second, start + 95 * second })
    {
        model->advance (now);
        other->advance (now);
        EXPECT_EQ (std::memcmp (&model->getStatistics(), &other->getStatistics(), sizeof (StatisticsBlock)), 0);
    }

    const auto log = readLog();
    model.swap (other);
    const auto otherLog = readLog();

    EXPECT_TRUE (log == otherLog);

    const auto before = model->getStatistics();
    config.seed = 2;
    model->reset (config, start);
    model->advance (start + 95 * second);
    EXPECT_NE (std::memcmp (&model->getStatistics(), &before, sizeof (before)), 0);
}

TEST_F (SimulatorModel, ResetEmptiesTheStatisticsAndClearTheCounters)
{
    model->glitch();
    model->advance (start + second);
    EXPECT_GT (accessCounters()[syncCountWord], 0U);

    command (ResetStatistics);
    const auto empty = model->getStatistics();
    EXPECT_EQ (+empty.recordBufferCount, 0);
    EXPECT_EQ (+empty.playbackBufferCount, 0);
    EXPECT_EQ (+empty.hostMaximum, 0);
    EXPECT_EQ (+empty.offsetMaximum, StatisticsBlock::noMaximum);
    EXPECT_EQ (+empty.offsetMinimum, StatisticsBlock::noMinimum);
    EXPECT_EQ (+empty.offsetAverage, 0);

    // The firmware's counters are another matter.
    EXPECT_EQ (accessCounters()[overflowsWord] + accessCounters()[underrunsWord], 1U);
    accessCounters (ClearFirmwareCounters);

    const auto cleared = accessCounters();
    EXPECT_EQ (cleared[overflowsWord], 0U);
    EXPECT_EQ (cleared[underrunsWord], 0U);
    EXPECT_EQ (cleared[syncCountWord], 0U);

    model->advance (start + 2 * second);
    EXPECT_NEAR (+model->getStatistics().recordBufferCount, 187, 1);
    EXPECT_LT (+model->getStatistics().hostMaximum, 256 * second / 48000);
}

TEST_F (SimulatorModel, GlitchShowsEverywhere)
{
    const auto period = 256 * second / 48000;
    const auto numReported = countEvents (EventType::debugCounts);

    for (std::uint32_t number = 1; number <= 8; ++number)
    {
        command (ResetStatistics);
        model->glitch();
        model->advance (start + std::int64_t { number } * 3 * period);

        const auto counters = accessCounters();
        const auto& block = model->getStatistics();
        EXPECT_EQ (counters[overflowsWord] + counters[underrunsWord], number);
        EXPECT_GT (+block.hostMaximum, period);
        EXPECT_GT (std::max (+block.recordMaximum, +block.playbackMaximum), period + period / 3);
        EXPECT_LE (counters[fifoLevelWord], 1024U);
    }

    const auto counters = accessCounters();
    EXPECT_GT (counters[overflowsWord], 0U);
    EXPECT_GT (counters[underrunsWord], 0U);
    EXPECT_EQ (countEvents (EventType::debugCounts), numReported + 8);

    // Left alone, it has one now and then.
    accessCounters (ClearFirmwareCounters);

    for (auto minute = 1; minute <= 10; ++minute)
        model->advance (start + std::int64_t { minute } * 60 * second);

    const auto later = accessCounters();
    EXPECT_GE (later[overflowsWord] + later[underrunsWord], 8U);
    EXPECT_LE (later[overflowsWord] + later[underrunsWord], 25U);
    EXPECT_GT (later[syncCountWord], 5U);
    EXPECT_NEAR (later[fifoLevelWord], 512.0, 100.0);
}

TEST_F (SimulatorModel, LogHasPlausibleOrder)
{
    // It starts with the computer's counter, so there is no earlier history to be seen.
    model->reset (config, 0);
    EXPECT_EQ (+model->getStatistics().offsetMaximum, StatisticsBlock::noMaximum);
    model->advance (second);

    const auto log = readLog();
    ASSERT_GT (log.size(), 1000U);
    EXPECT_EQ (log[0].type, static_cast<std::uint32_t> (EventType::listenAttach));
    EXPECT_EQ (log[1].type, static_cast<std::uint32_t> (EventType::listenAttachCompletion));
    EXPECT_EQ (log[1].param, 0xFFFFFFFF);

    for (std::size_t i = 0; i < log.size(); ++i)
    {
        EXPECT_EQ (log[i].frequency, second);
        EXPECT_LE (log[i].type, 23U);
        EXPECT_LE (log[i].timestamp, second);

        if (i > 0)
        {
            ASSERT_LT (log[i - 1].timestamp, log[i].timestamp) << i;
            EXPECT_EQ (log[i - 1].type == static_cast<std::uint32_t> (EventType::dpcSignaled),
                       log[i].type == static_cast<std::uint32_t> (EventType::dpc));
        }
    }

    // A restart of the stream detaches first.
    model->setSampleRate (44100);
    EXPECT_EQ (countEvents (EventType::talkDetach), 1U);
    EXPECT_EQ (countEvents (EventType::listenAttach), 2U);
}

TEST_F (SimulatorModel, LogKeepsTheNewestEntries)
{
    model->advance (start + 59 * second);
    auto log = readLog();
    ASSERT_EQ (log.size(), EventLog::maximumLength);
    EXPECT_GT (log.back().timestamp, start + 59 * second - second / 10);
    EXPECT_EQ (readEntry (EventLog::maximumLength).type, noSuchEntry);
    EXPECT_EQ (readEntry (0xFFFFFFFF).type, noSuchEntry);

    for (const auto length : { 0U, 1U, 10U, 16383U, 16384U, 20000U })
    {
        model->fillEventLog (length);
        log = readLog();
        ASSERT_EQ (log.size(), std::min (length, EventLog::maximumLength));
        EXPECT_TRUE (
            std::is_sorted (log.begin(), log.end(), [] (auto a, auto b) { return a.timestamp < b.timestamp; }));
    }

    model->fillEventLog (10);
    const auto before = readLog();
    model->advance (start + 60 * second);
    log = readLog();
    ASSERT_EQ (log.size(), 10U);
    EXPECT_GT (log.front().timestamp, before.back().timestamp);
}

TEST_F (SimulatorModel, LogStandsStillWhileItIsRead)
{
    model->fillEventLog (1000);
    const auto expected = readLog();

    // The stream goes on between one entry and the next.
    auto now = start;

    for (std::uint32_t i = 0; i < 1000; ++i)
    {
        const auto entry = readEntry (i);
        ASSERT_EQ (entry.timestamp, expected[i].timestamp) << i;
        now += second / 100;
        model->advance (now);
    }

    // The reader has not seen the end, but has given up.
    model->advance (now + 3 * second);
    EXPECT_GT (readEntry (0).timestamp, expected.back().timestamp);
}

TEST_F (SimulatorModel, ProbeReplyMatchesTheCapabilities)
{
    std::array<std::uint8_t, DeviceModel::capabilitiesSize> record;
    config.hasDsp = false;
    config.vendorId = 0x123456;
    model->reset (config, start);
    model->writeCapabilities (record.data());

    const auto word = [&record] (std::size_t offset)
    {
        std::uint32_t result;
        std::memcpy (&result, record.data() + offset, sizeof (result));
        return result;
    };

    EXPECT_EQ (word (0), 0x20U);
    EXPECT_EQ (word (4), 0x12345600U);
    EXPECT_EQ (word (164), config.armVersion);
    EXPECT_EQ (word (176), config.fpgaVersion);
    EXPECT_EQ ((word (96) + word (100)) * 4 + 64, DeviceModel::probeReplySize);

    TransactionBlock request {};
    request.length = headerLength;
    request.code = ProbeDevice;

    for (const std::size_t capacity : { 28U, 64U, 128U, 464U })
    {
        std::array<std::uint8_t, 464> area;
        area.fill (0xEE);

        const auto reply =
            model->handle (IOCTL_DEVICE_TRANSACTION, &request, TransactionBlock::headerSize, area.data(), capacity);
        EXPECT_EQ (reply.error, noError);
        EXPECT_EQ (reply.outputSize, std::min (capacity, DeviceModel::probeReplySize));
        EXPECT_EQ (std::memcmp (area.data(), "\0\0\0\0", 4), 0);
        EXPECT_EQ (std::memcmp (area.data() + 24, "\0\0\0\0", 4), 0);
        EXPECT_EQ (area[reply.outputSize], 0xEE);
    }
}

TEST_F (SimulatorModel, RefusesRequestsThatItDoesNotKnow)
{
    const auto errorOf = [this] (std::uint32_t control, auto request, std::size_t inputSize, std::size_t capacity)
    {
        std::array<std::uint8_t, 92> output {};
        const auto reply = model->handle (control, &request, inputSize, output.data(), capacity);
        EXPECT_EQ (reply.outputSize, 0U);
        EXPECT_TRUE (std::all_of (output.begin(), output.end(), [] (auto byte) { return byte == 0; }));
        return reply.error;
    };

    CommandEnvelope envelope {};
    EXPECT_EQ (errorOf (IOCTL_DEVICE_COMMAND, envelope, 64, 64), invalidFunction);
    envelope.code = ReadStreamStatus;
    EXPECT_EQ (errorOf (0, envelope, 64, 64), invalidFunction);
    EXPECT_EQ (errorOf (IOCTL_DEVICE_COMMAND, envelope, 63, 64), invalidParameter);
    EXPECT_EQ (errorOf (IOCTL_DEVICE_COMMAND, envelope, 64, 63), insufficientBuffer);
    EXPECT_EQ (model->handle (IOCTL_DEVICE_COMMAND, nullptr, 0, nullptr, 0).error, invalidParameter);
    EXPECT_EQ (model->handle (IOCTL_DEVICE_TRANSACTION, nullptr, 0, nullptr, 0).error, invalidParameter);

    TransactionBlock block {};
    block.code = AccessFirmwareCounters;
    block.length = fullLength;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 91, 92), invalidParameter);
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 92, 91), insufficientBuffer);
    block.words[0] = 1;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 92, 92), invalidParameter);
    block.code = 2;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 92, 92), invalidFunction);
    block.code = ProbeDevice;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 92, 92), invalidParameter);
    block.length = headerLength;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 28, 27), insufficientBuffer);
    block.requestClass = 1;
    EXPECT_EQ (errorOf (IOCTL_DEVICE_TRANSACTION, block, 28, 92), invalidParameter);
}

TEST_F (SimulatorModel, TakesOddTimesAndConfigurations)
{
    const auto count = model->getStatistics().recordBufferCount;
    model->advance (INT64_MIN);
    model->advance (INT64_MAX);
    EXPECT_EQ (+model->getStatistics().recordBufferCount, count);

    // A computer that slept does not make up for the whole night.
    model->advance (start + 8 * (3600 * second));
    EXPECT_EQ (+model->getStatistics().recordBufferCount, count + 60 * 48000 / 256);

    config.sampleRate = 0;
    config.bufferSize = 0xFFFFFFFF;
    config.frequency = 0;
    std::memset (config.name, 'x', sizeof (config.name));
    model->reset (config, -1);
    EXPECT_EQ (command (ReadStreamStatus)[sampleRateWord], 48000U);
    EXPECT_EQ (command (ReadStreamStatus)[bufferSizeWord], 256U);
    EXPECT_EQ (std::strlen (model->getConfig().name), DeviceConfig::maximumNameLength);
}
} // namespace
