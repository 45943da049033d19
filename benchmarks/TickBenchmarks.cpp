#include "benchmarks/Ratio.h"
#include "events/EventDisplayWindowContent.h"
#include "stats/Content.h"
#include "tests/unit/support/Client.h"
#include "tests/unit/support/Devices.h"

#include <cstdlib>

using namespace DriverProtocol;

namespace
{

/** A request, and the reply to it. */
template <typename Buffer>
void exchange (const Client& client, std::uint32_t controlCode, const Buffer& input)
{
    struct
    {
        std::uint32_t code, outputSize;
        Buffer input;
    } request { controlCode, sizeof (Buffer), input };

    std::uint8_t reply[4 + sizeof (Buffer)];
    const auto socket = client.socket.get();

    if (::send (socket, &request, sizeof (request), 0) < 0 || ::recv (socket, reply, sizeof (reply), 0) < 0)
        std::abort();
}

std::string folderOf (const TestMachine& machine, const std::string& name)
{
    return machine.getInterfaceFolder (name).getFullPathName().toStdString();
}

/** One refresh of the main view, without painting, against its transactions alone. */
void tick (benchmark::State& state)
{
    const TestMachine machine;
    std::vector<std::unique_ptr<TestDriver>> drivers;
    std::vector<Client> clients;

    for (int i = 0; i < state.range (0); ++i)
    {
        const auto name = "d" + std::to_string (i);
        drivers.push_back (std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name }));
        clients.emplace_back (folderOf (machine, name));
    }

    DeviceList devices;
    Content content (devices);

    TransactionBlock block {};
    block.length = fullLength;
    block.code = AccessFirmwareCounters;
    CommandEnvelope envelope {};
    envelope.code = ReadStreamStatus;

    measureRatio (
        state,
        state.range (0) == 1 ? 1.1 : 1.15,
        [&] { content.timerCallback(); },
        [&]
        {
            for (const auto& client : clients)
                exchange (client, IOCTL_DEVICE_TRANSACTION, block);

            exchange (clients.back(), IOCTL_DEVICE_COMMAND, envelope);
        });
}

BENCHMARK (tick)->Arg (1)->Arg (4)->Arg (16)->UseManualTime()->Unit (benchmark::kMicrosecond);

/** Puts a full log into a driver. */
void fillLog (TestDriver& driver)
{
    constexpr std::uint32_t numEntries = 16384;

    for (std::uint32_t i = 0; i < numEntries; ++i)
    {
        EventLogEntry entry {};
        entry.timestamp = i * 7919 % 100003;
        entry.frequency = 10000000;
        driver.events.push_back (entry);
    }
}

/** What reading a full log takes, and nothing else. */
void requestLog (const Client& client, TestDriver& driver)
{
    for (std::uint32_t i = 0; i < driver.events.size(); ++i)
    {
        CommandEnvelope envelope {};
        envelope.code = ReadEventEntry;
        envelope.words[0] = i;
        exchange (client, IOCTL_DEVICE_COMMAND, envelope);
    }

    driver.forgetRecords();
}

/** All that the event window holds for two full logs, painted once, against its requests: each log is read twice. */
void openEventWindow (benchmark::State& state)
{
    const TestMachine machine;
    TestDriver one (machine, { .name = "one" }), two (machine, { .name = "two" });
    const Client clientOfOne (folderOf (machine, "one")), clientOfTwo (folderOf (machine, "two"));
    fillLog (one);
    fillLog (two);

    OpenList devices;
    measureRatio (
        state,
        1.1,
        [&]
        {
            EventDisplayWindowContent content (devices);
            benchmark::DoNotOptimize (content.createComponentSnapshot (content.getLocalBounds()));
        },
        [&]
        {
            for (int i = 0; i < 2; ++i)
            {
                requestLog (clientOfOne, one);
                requestLog (clientOfTwo, two);
            }
        });
}

// It takes so long that it would be measured only once.
BENCHMARK (openEventWindow)->Iterations (5)->UseManualTime()->Unit (benchmark::kMillisecond);

} // namespace
