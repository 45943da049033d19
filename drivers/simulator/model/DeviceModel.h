#pragma once

#include "drivers/machine/CheckedRequest.h"
#include "drivers/machine/EventRing.h"
#include "drivers/machine/Measurements.h"
#include "drivers/simulator/model/Random.h"
#include "protocol/DriverProtocol.h"
#include "protocol/StatisticsBlock.h"

#include <cstddef>
#include <cstdint>

namespace Simulation
{

/** What one simulated audio interface is. */
struct DeviceConfig
{
    static constexpr std::size_t maximumNameLength = 63;

    char name[maximumNameLength + 1] = "Tamrix"; /**< Ends with a 0 byte. */
    std::uint32_t sampleRate = 48000;            /**< Hz; see DeviceModel::isSampleRate(). */
    std::uint32_t bufferSize = 256;              /**< Sample frames; see DeviceModel::isBufferSize(). */
    std::uint64_t seed = 1;
    std::int64_t frequency = 10'000'000; /**< Ticks per second of the times given to the model, 1 kHz to 10 GHz. */
    bool hasDsp = true;
    bool hasFpga = true;
    std::uint32_t vendorId = 0x00C3F1; /**< 24 bits. */
    std::uint32_t typeId = 1;
    std::uint32_t dspVersion = 0x00020005;
    std::uint32_t armVersion = 0x0003000B;
    std::uint32_t fpgaVersion = 0x00010010;
};

/** An audio interface and its driver, as the requests of the driver protocol show them.

    The model streams buffer after buffer: record and playback jitter, the host is woken and works, the
    device's clock drifts against the computer's and is adjusted, the FIFO moves around its middle. Once or
    twice a minute the host is too late: the glitch shows in the firmware's overflows or underruns, in the
    maxima of the statistics and in the event log.

    Bytes and times go in, bytes come out. There is no clock, heap, thread, file or floating point in here, so
    it runs in a process or in a kernel driver, and the same seed with the same calls gives the same
    bytes. An object is large (it has an event log): keep it off the stack. Used by one thread at a time.
*/
class DeviceModel
{
public:
    /** Bytes of the probe's reply, as the counts in the capability record announce them. */
    static constexpr std::size_t probeReplySize = 128;

    static bool isSampleRate (std::uint32_t hz) { return hz >= 22050 && hz <= 192000; }
    static bool isBufferSize (std::uint32_t samples) { return samples >= 16 && samples <= 8192; }

    /** Attaches the device and starts its stream, which has then been running for up to three seconds.

        @param newConfig  a sample rate, buffer size or frequency out of range is replaced by the default
        @param now        ticks; history does not reach before 0
    */
    DeviceModel (const DeviceConfig& newConfig, std::int64_t now);

    /** Moves the stream to the given time in ticks.

        A time before the last one, or above 2^62, is ignored. Of a leap over more than a minute, only the
        last minute is streamed.
    */
    void advance (std::int64_t now);

    struct Reply
    {
        std::uint32_t error = Machine::noError; /**< 0, or a Windows error code; then nothing was written. */
        std::size_t outputSize = 0;             /**< Bytes written. */

        /** MapStatistics: the caller is to hand out the statistics, as its kind of driver does, and to put
            the address into word 0 of the envelope when that is its business. */
        bool mapsStatistics = false;
    };

    /** Answers one I/O control request.

        Any control code, bytes and sizes are good: what the driver does not know fails. Input and output
        may be the same memory.

        @param inputSize       bytes at input, which may be null when this is 0
        @param outputCapacity  bytes at output, which may be null when this is 0
    */
    Reply handle (std::uint32_t controlCode,
                  const void* input,
                  std::size_t inputSize,
                  void* output,
                  std::size_t outputCapacity);

    /** The statistics as of the last advance or ResetStatistics. */
    StatisticsBlock getStatistics() const;

    DriverProtocol::CapabilityRecord getCapabilities() const;

    const DeviceConfig& getConfig() const { return config; }
    std::uint32_t getEventLogLength() const { return events.getLength(); }

    //==============================================================================
    /** Restarts the stream with another sample rate; false, and nothing changed, when it is out of range. */
    bool setSampleRate (std::uint32_t hz);

    /** Restarts the stream with another buffer size; false, and nothing changed, when it is out of range. */
    bool setBufferSize (std::uint32_t samples);

    /** Makes the host late for the next buffer. */
    void glitch() { isGlitchWanted = true; }

    /** Rewrites the event log with this many entries, at most 16384, that lead up to the present.

        It keeps this length from then on: each new event takes the place of the oldest. Of two programs that read it at
        once, each goes on with what the last one to begin has found.
    */
    void fillEventLog (std::uint32_t length);

private:
    /** What happens in one buffer; times in ticks. */
    struct Buffer
    {
        std::int64_t start;
        std::int64_t period;
        std::int64_t recordTime;
        std::int64_t playbackTime;
        std::int64_t wakeup;
        std::int64_t host;
        bool isGlitch;
        std::int8_t clockCorrection; // -1, 0 or 1
    };

    std::int64_t microseconds (std::int64_t number) const { return number * config.frequency / 1'000'000; }
    std::int64_t seconds (std::int64_t number) const { return number * config.frequency; }

    void startStream();
    void restartStream();
    std::int64_t nextPeriod (std::uint32_t& remainder) const;
    Buffer describeBuffer (std::int64_t start, std::int64_t period);
    void makeGlitch (Buffer& buffer);
    void measure (const Buffer& buffer);
    void moveClock (Buffer& buffer);
    void log (std::int64_t time, DriverProtocol::EventType type, std::uint32_t param, std::int8_t auxValue = 0);
    void log (const Buffer& buffer);
    void logListen (const Buffer& buffer, std::int64_t time);
    void logTalk (const Buffer& buffer, std::int64_t time);

    DeviceConfig config;
    Machine::EventRing events;
    Machine::EventReader eventReader;
    std::int64_t lastEventTime = INT64_MIN;
    Random random;

    std::int64_t currentTime = 0;
    std::int64_t bufferStart = 0;        // of the buffer that is streaming now
    std::uint32_t periodRemainder = 0;   // sample rates seldom divide a buffer into whole ticks
    std::uint32_t buffersSinceStart = 0; // of the stream; numbers the buffers in the log
    Machine::Measurements measured;

    std::int64_t recordJitter = 0, playbackJitter = 0;
    std::int64_t hostShare = 0; // thousandths of the period
    std::int64_t drift = 0;     // parts in 10^9 between the device's clock and the computer's
    std::int64_t phase = 0;     // of playback against record, in thousandths of a tick; may be negative
    std::int64_t restPhase = 0; // where the clock adjustment holds it

    std::int64_t nextGlitch = 0, nextSync = 0;
    bool isGlitchWanted = false;
    std::int64_t fifoLevel = 0;
    std::uint32_t overflows = 0, underruns = 0, syncCount = 0;
    std::uint32_t transactionCount = 0;
};

} // namespace Simulation
