#include "drivers/simulator/model/DeviceModel.h"

#include <cstring>

namespace Simulation
{

using namespace DriverProtocol;
using namespace Machine;

namespace
{
constexpr std::int64_t fifoFull = DriverProtocol::fullFifo;
constexpr std::int64_t fifoMiddle = fifoFull / 2;
constexpr std::int64_t phaseUnitsPerTick = 1000;
constexpr std::int64_t historySeconds = 3;
constexpr std::int64_t longestLeapSeconds = 60;

// An ordinary buffer logs at least this many events.
constexpr std::uint32_t eventsPerBuffer = 9;

// Readers make the probe's reply area this large: four bytes for each of the counted channels, and a fixed part.
constexpr std::uint32_t numRecordChannels = 8;
constexpr std::uint32_t numPlaybackChannels = 8;
static_assert (std::size_t { 4 } * (numRecordChannels + numPlaybackChannels) + DriverProtocol::probeReplyFixedSize
               == DeviceModel::probeReplySize);

std::int64_t clamp (std::int64_t value, std::int64_t low, std::int64_t high)
{
    return value < low ? low : value > high ? high : value;
}
} // namespace

//==============================================================================
DeviceModel::DeviceModel (const DeviceConfig& newConfig, std::int64_t now) : config (newConfig), random (newConfig.seed)
{
    const DeviceConfig defaults;
    config.name[DeviceConfig::maximumNameLength] = 0;

    if (! isSampleRate (config.sampleRate))
        config.sampleRate = defaults.sampleRate;

    if (! isBufferSize (config.bufferSize))
        config.bufferSize = defaults.bufferSize;

    if (config.frequency < 1'000 || config.frequency > 10'000'000'000)
        config.frequency = defaults.frequency;

    const auto history = clamp (now, 0, seconds (historySeconds));
    currentTime = clamp (now, 0, INT64_MAX / 2) - history;
    nextGlitch = currentTime + history + seconds (random.between (15, 45));
    nextSync = currentTime + history + seconds (random.between (20, 60));
    hostShare = random.between (250, 450);
    drift = random.between (-30'000, 30'000);
    fifoLevel = fifoMiddle;

    startStream();
    advance (currentTime + history);
}

void DeviceModel::startStream()
{
    bufferStart = currentTime;
    periodRemainder = 0;
    buffersSinceStart = 0;
    recordJitter = 0;
    playbackJitter = 0;

    // Playback runs a little ahead of record or behind it, as the two happened to start.
    std::uint32_t remainder = 0;
    const auto period = nextPeriod (remainder);
    restPhase = random.between (period / 8, period / 4) * phaseUnitsPerTick;

    if (random.onceIn (2))
        restPhase = -restPhase;

    phase = restPhase;
    ++syncCount;
    measured = {};

    log (bufferStart, EventType::listenAttach, config.sampleRate);
    log (bufferStart, EventType::listenAttachCompletion, noParameter);
}

void DeviceModel::restartStream()
{
    log (currentTime, EventType::talkDetach, noParameter);
    log (currentTime, EventType::talkDetachCompletion, noParameter);
    log (currentTime, EventType::listenDetach, noParameter);
    log (currentTime, EventType::listenDetachCompletion, noParameter);
    startStream();
}

bool DeviceModel::setSampleRate (std::uint32_t hz)
{
    if (! isSampleRate (hz))
        return false;

    config.sampleRate = hz;
    restartStream();
    return true;
}

bool DeviceModel::setBufferSize (std::uint32_t samples)
{
    if (! isBufferSize (samples))
        return false;

    config.bufferSize = samples;
    restartStream();
    return true;
}

//==============================================================================
std::int64_t DeviceModel::nextPeriod (std::uint32_t& remainder) const
{
    const auto total = config.bufferSize * config.frequency + remainder;
    remainder = static_cast<std::uint32_t> (total % config.sampleRate);
    return total / config.sampleRate;
}

void DeviceModel::advance (std::int64_t now)
{
    if (now < currentTime || now > INT64_MAX / 2)
        return;

    currentTime = now;

    if (now - bufferStart > seconds (longestLeapSeconds))
        bufferStart = now - seconds (longestLeapSeconds);

    for (;;)
    {
        auto remainder = periodRemainder;
        const auto period = nextPeriod (remainder);

        if (period > now - bufferStart)
            break;

        auto buffer = describeBuffer (bufferStart, period);
        bufferStart += period;
        periodRemainder = remainder;

        if (isGlitchWanted || bufferStart >= nextGlitch)
            makeGlitch (buffer);

        if (bufferStart >= nextSync)
        {
            ++syncCount;
            nextSync = bufferStart + seconds (random.between (20, 90));
        }

        measure (buffer);
        log (buffer);
        ++buffersSinceStart;
    }
}

/* All that happens in an ordinary buffer is over before the buffer is: the host has four fifths of it at
    most, the DPC and the wake-up the rest. */
DeviceModel::Buffer DeviceModel::describeBuffer (std::int64_t start, std::int64_t period)
{
    Buffer buffer {};
    buffer.start = start;
    buffer.period = period;

    // A late interrupt makes one buffer long and the next short.
    const auto jitterLimit = clamp (microseconds (40), 0, period / 16);
    const auto lastRecordJitter = recordJitter;
    const auto lastPlaybackJitter = playbackJitter;
    recordJitter = (random.between (-jitterLimit, jitterLimit) + random.between (-jitterLimit, jitterLimit)) / 2;
    playbackJitter = (random.between (-jitterLimit, jitterLimit) + random.between (-jitterLimit, jitterLimit)) / 2;
    buffer.recordTime = period + recordJitter - lastRecordJitter;
    buffer.playbackTime = period + playbackJitter - lastPlaybackJitter;

    const auto isSpike = random.onceIn (2000);
    const auto slowest = isSpike ? microseconds (900) : microseconds (140);
    const auto fastest = isSpike ? microseconds (300) : microseconds (25);
    buffer.wakeup = clamp (random.between (fastest, slowest), 0, period / 10);

    hostShare = clamp (hostShare + random.between (-4, 4), 150, 550);
    const auto share = random.onceIn (500) ? 750 : clamp (hostShare + random.between (-50, 50), 100, 700);
    buffer.host = period * share / 1000;

    moveClock (buffer);
    fifoLevel = clamp (fifoLevel + (fifoMiddle - fifoLevel) / 16 + random.between (-6, 6), 0, fifoFull);
    return buffer;
}

void DeviceModel::moveClock (Buffer& buffer)
{
    drift = clamp (drift + random.between (-500, 500), -60'000, 60'000);
    phase += buffer.period * drift / (1'000'000'000 / phaseUnitsPerTick);

    const auto deviation = phase - restPhase;
    const auto allowed = buffer.period * phaseUnitsPerTick / 128;

    if (deviation > allowed || deviation < -allowed)
    {
        buffer.clockCorrection = deviation > 0 ? -1 : 1;
        phase -= deviation * 3 / 4;
    }
}

void DeviceModel::makeGlitch (Buffer& buffer)
{
    isGlitchWanted = false;
    nextGlitch = bufferStart + seconds (random.between (25, 65));

    const auto excess = random.between (buffer.period / 2, buffer.period * 3 / 2);
    buffer.isGlitch = true;
    buffer.host = buffer.period + excess;

    if (random.onceIn (2))
    {
        ++overflows;
        fifoLevel = fifoFull;
        buffer.recordTime += excess;
    }
    else
    {
        ++underruns;
        fifoLevel = 0;
        buffer.playbackTime += excess;
    }
}

void DeviceModel::measure (const Buffer& buffer)
{
    measured.playback.add (buffer.playbackTime);
    measured.record.add (buffer.recordTime);
    measured.wakeup.add (buffer.wakeup);
    measured.host.add (buffer.host);

    // Offsets count from the start of the record buffer: playback that runs ahead shows as nearly a whole one.
    const auto noise = clamp (microseconds (8), 0, buffer.period / 64);
    const auto position = phase / phaseUnitsPerTick + random.between (-noise, noise);
    measured.offset.add (position < 0 ? position + buffer.period : position);
}

StatisticsBlock DeviceModel::getStatistics() const
{
    auto statistics = measured.makeBlock();
    statistics.playbackBufferCount = static_cast<std::int32_t> (measured.playback.count);
    statistics.recordBufferCount = static_cast<std::int32_t> (measured.record.count);
    return statistics;
}

//==============================================================================
void DeviceModel::log (std::int64_t time, EventType type, std::uint32_t param, std::int8_t auxValue)
{
    // Each event has a time of its own.
    lastEventTime = time > lastEventTime ? time : lastEventTime + 1;
    events.append ({ lastEventTime, param, type, auxValue });
}

void DeviceModel::log (const Buffer& buffer)
{
    const auto afterDpc = buffer.start + clamp (microseconds (random.between (6, 30)), 1, buffer.period / 32 + 1);

    log (buffer.start, EventType::dpcSignaled, noParameter);
    log (afterDpc, EventType::dpc, 2);
    logListen (buffer, afterDpc + clamp (microseconds (2), 0, buffer.period / 64));
    log (afterDpc + buffer.wakeup, EventType::userClientEvent, buffersSinceStart & 1);

    // A host that is too late reports nothing before the buffer is over.
    if (buffer.isGlitch)
    {
        log (buffer.start + buffer.period, EventType::fifoCount, static_cast<std::uint32_t> (fifoLevel), -1);
        log (buffer.start + buffer.period, EventType::debugCounts, overflows + underruns, -1);
    }
    else
    {
        logTalk (buffer, afterDpc + buffer.wakeup + buffer.host);
    }
}

void DeviceModel::logListen (const Buffer& buffer, std::int64_t time)
{
    const auto number = buffersSinceStart;
    const auto late = static_cast<std::int8_t> (clamp (recordJitter / (microseconds (1) + 1), -99, 99));

    if (number == 0)
        log (time, EventType::listenStartupA, number, late);
    else if (number == 1)
        log (time, EventType::listenStartupB, number, late);
    else
        log (time, EventType::listenComplete, number, late);

    if (buffer.clockCorrection != 0)
    {
        log (time, EventType::clockAdjust, config.sampleRate, buffer.clockCorrection);
        log (time, EventType::listenBufferAdjust, number, buffer.clockCorrection);
    }
    else if (number % 8 == 0)
    {
        log (time, EventType::clockNoAdjust, noParameter);
    }

    log (time, EventType::bufferState, buffer.isGlitch ? 0 : 1 + (number & 1));
}

void DeviceModel::logTalk (const Buffer& buffer, std::int64_t time)
{
    const auto number = buffersSinceStart;
    const auto step = clamp (microseconds (3), 0, buffer.period / 100);

    log (time, EventType::outputReady, number);

    if (number == 1)
    {
        log (time, EventType::talkAttach, config.sampleRate);
        log (time, EventType::talkAttachCompletion, noParameter);
    }

    log (time + step, EventType::talkFilled, config.bufferSize);
    log (time + 2 * step, EventType::talkPack, number);
    log (time + 3 * step, EventType::talkComplete, number);

    if (number % 16 == 0)
        log (time + 3 * step,
             EventType::fifoCount,
             static_cast<std::uint32_t> (fifoLevel),
             static_cast<std::int8_t> (clamp (fifoLevel - fifoMiddle, -128, 127)));

    if (number % 256 == 255)
        log (time + 3 * step, EventType::debugCounts, overflows + underruns);
}

void DeviceModel::fillEventLog (std::uint32_t length)
{
    events.restartWithLimit (length);
    lastEventTime = INT64_MIN;

    // Soon after the computer's start there has not been time for so long a history.
    const auto numBuffers = clamp (length, 0, EventRing::maximumLength) / eventsPerBuffer + 1;
    std::uint32_t remainder = 0;
    const auto period = clamp (bufferStart / numBuffers, 1, nextPeriod (remainder));
    // The buffer numbers say that the stream has run for at least as long.
    if (buffersSinceStart < numBuffers + 2)
        buffersSinceStart = static_cast<std::uint32_t> (numBuffers + 2);

    const auto number = buffersSinceStart;

    for (auto i = numBuffers; i > 0; --i)
    {
        buffersSinceStart = number - static_cast<std::uint32_t> (i);
        log (describeBuffer (bufferStart - i * period, period));
    }

    buffersSinceStart = number;
}

//==============================================================================
DriverProtocol::CapabilityRecord DeviceModel::getCapabilities() const
{
    DriverProtocol::CapabilityRecord capabilities {};
    capabilities.flags = (config.hasDsp ? capabilities.dspFlag : 0) | (config.hasFpga ? capabilities.fpgaFlag : 0);
    capabilities.vendor = config.vendorId << 8;
    capabilities.type = config.typeId;
    capabilities.firstProbeCount = numRecordChannels;
    capabilities.secondProbeCount = numPlaybackChannels;
    capabilities.dspVersion = config.hasDsp ? config.dspVersion : 0;
    capabilities.armVersion = config.armVersion;
    capabilities.fpgaVersion = config.hasFpga ? config.fpgaVersion : 0;
    return capabilities;
}

DeviceModel::Reply DeviceModel::handle (std::uint32_t controlCode,
                                        const void* input,
                                        std::size_t inputSize,
                                        void* output,
                                        std::size_t outputCapacity)
{
    using DriverProtocol::RequestKind;

    auto request = checkRequest (controlCode, input, inputSize, outputCapacity);

    if (request.error != noError)
        return { .error = request.error };

    auto& words = request.envelope.words;
    auto& block = request.block;

    switch (request.kind)
    {
        case RequestKind::streamStatus:
            words[DriverProtocol::sampleRateWord] = config.sampleRate;
            words[DriverProtocol::bufferSizeWord] = config.bufferSize;
            break;

        case RequestKind::resetStatistics:
            measured = {};
            break;

        case RequestKind::eventEntry:
        {
            const auto entry = eventReader.read (events, request.eventIndex, config.frequency);
            std::memcpy (words, &entry, sizeof (entry));
            break;
        }

        case RequestKind::clearCounters:
            overflows = 0;
            underruns = 0;
            syncCount = 0;
            [[fallthrough]];

        case RequestKind::readCounters:
            block.words[DriverProtocol::overflowsWord] = overflows;
            block.words[DriverProtocol::underrunsWord] = underruns;
            block.words[DriverProtocol::fifoLevelWord] = static_cast<std::uint32_t> (fifoLevel);
            block.words[DriverProtocol::unshownWord] = transactionCount;
            block.words[DriverProtocol::syncCountWord] = syncCount;
            [[fallthrough]];

        case RequestKind::probe:
            block.driverWords[0] = config.typeId;
            block.driverWords[1] = ++transactionCount;
            break;

        case RequestKind::mapStatistics:
        case RequestKind::other:
            break;
    }

    return { .outputSize = writeReply (request, output, outputCapacity, probeReplySize),
             .mapsStatistics = request.kind == RequestKind::mapStatistics };
}

} // namespace Simulation
