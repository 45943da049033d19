// The simulated device: requests of any bytes and sizes at any time.

#include "drivers/simulator/model/DeviceModel.h"
#include "tests/fuzz/Fuzz.h"

#include <array>

using namespace Machine;
using namespace Simulation;

namespace
{

DeviceConfig takeConfig (FuzzedDataProvider& input)
{
    DeviceConfig config;
    config.sampleRate = input.ConsumeIntegral<std::uint32_t>();
    config.bufferSize = input.ConsumeIntegral<std::uint16_t>();
    config.seed = input.ConsumeIntegral<std::uint32_t>();
    config.frequency = input.ConsumeIntegral<std::int64_t>();
    config.hasDsp = (config.seed & 1) != 0;
    return config;
}

/** One request, whose input and output may be the same memory. */
void request (DeviceModel& model, FuzzedDataProvider& input)
{
    constexpr std::uint8_t untouched = 0xA5;
    std::array<std::uint8_t, 512> area;
    area.fill (untouched);

    const auto code = input.ConsumeIntegral<std::uint8_t>();
    const std::size_t capacity = input.ConsumeIntegral<std::uint8_t>();
    const auto bytes = input.ConsumeBytes<std::uint8_t> (input.ConsumeIntegral<std::uint8_t>());
    const bool inPlace = (code & 4) != 0;

    if (inPlace)
        std::copy (bytes.begin(), bytes.end(), area.begin());

    const auto before = area;
    const auto reply = model.handle (code % 4 == 0   ? DriverProtocol::IOCTL_DEVICE_COMMAND
                                     : code % 4 == 3 ? code
                                                     : DriverProtocol::IOCTL_DEVICE_TRANSACTION,
                                     inPlace ? area.data() : bytes.data(),
                                     bytes.size(),
                                     area.data(),
                                     capacity);

    require (reply.outputSize <= capacity, "a reply fits");
    require (reply.error == noError || (reply.outputSize == 0 && ! reply.mapsStatistics), "a failure brings nothing");
    require (std::equal (area.begin() + static_cast<std::ptrdiff_t> (reply.outputSize),
                         area.end(),
                         before.begin() + static_cast<std::ptrdiff_t> (reply.outputSize)),
             "what is behind the reply stays");
}

void requireSense (const DeviceModel& model)
{
    const auto& statistics = model.getStatistics();
    require (statistics.playbackBufferCount == statistics.recordBufferCount, "playback and record keep step");
    require (statistics.wakeupAverage >= 0 && statistics.wakeupAverage <= statistics.wakeupMaximum
                 && statistics.hostAverage >= 0 && statistics.hostAverage <= statistics.hostMaximum
                 && statistics.recordAverage <= statistics.recordMaximum
                 && statistics.playbackAverage <= statistics.playbackMaximum,
             "an average is below its maximum");
    require (model.getEventLogLength() <= EventLog::maximumLength, "the log has an end");
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static DeviceModel model;

    FuzzedDataProvider input (data, size);
    auto now = input.ConsumeIntegral<std::int64_t>();
    model.reset (takeConfig (input), now);

    // A minute of the shortest buffers is half a million of them, so an input has just a few seconds.
    auto remaining = model.getConfig().frequency * 4;

    while (input.remaining_bytes() > 0)
    {
        switch (input.ConsumeIntegral<std::uint8_t>() % 8)
        {
            case 0:
            {
                const auto step = std::min<std::int64_t> (input.ConsumeIntegral<std::uint32_t>(), remaining);
                remaining -= step;
                now = static_cast<std::int64_t> (static_cast<std::uint64_t> (now) + static_cast<std::uint64_t> (step));
                model.advance (now);
                break;
            }
            case 1:
                model.setSampleRate (input.ConsumeIntegral<std::uint32_t>() % 250'000);
                break;
            case 2:
                model.setBufferSize (input.ConsumeIntegral<std::uint16_t>());
                break;
            case 3:
                model.glitch();
                break;
            case 4:
                model.fillEventLog (input.ConsumeIntegral<std::uint16_t>() % 512);
                break;
            default:
                request (model, input);
                break;
        }

        requireSense (model);
    }

    return 0;
}
