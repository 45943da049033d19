#include "benchmarks/Ratio.h"
#include "device/DeviceList.h"
#include "events/EventDisplayWindowContent.h"
#include "events/EventList.h"
#include "stats/Content.h"
#include "tests/unit/support/TestDriver.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace DriverProtocol;

namespace
{

/** A connection to a driver with nothing of the program's in between. */
class RawClient
{
public:
    explicit RawClient (const juce::File& interfaceFolder) : socket (::socket (AF_UNIX, SOCK_SEQPACKET, 0))
    {
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        interfaceFolder.getChildFile ("driver").getFullPathName().copyToUTF8 (address.sun_path,
                                                                              sizeof (address.sun_path));

        if (::connect (socket, reinterpret_cast<const sockaddr*> (&address), sizeof (address)) != 0)
            std::abort();
    }

    ~RawClient() { ::close (socket); }

    template <typename Buffer>
    void exchange (std::uint32_t controlCode, const Buffer& input)
    {
        struct
        {
            std::uint32_t code, outputSize;
            Buffer input;
        } request { controlCode, sizeof (Buffer), input };

        std::uint8_t reply[4 + sizeof (Buffer)];

        if (::send (socket, &request, sizeof (request), 0) < 0 || ::recv (socket, reply, sizeof (reply), 0) < 0)
            std::abort();
    }

private:
    const int socket;
};

/** One refresh of the main view, without painting, against its transactions alone. */
void tick (benchmark::State& state)
{
    const TestMachine machine;
    std::vector<std::unique_ptr<TestDriver>> drivers;
    std::vector<std::unique_ptr<RawClient>> clients;

    for (int i = 0; i < state.range (0); ++i)
    {
        const auto name = "d" + std::to_string (i);
        drivers.push_back (std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name }));
        clients.push_back (std::make_unique<RawClient> (machine.getInterfaceFolder (name)));
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
            for (auto& client : clients)
                client->exchange (IOCTL_DEVICE_TRANSACTION, block);

            clients.back()->exchange (IOCTL_DEVICE_COMMAND, envelope);
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
void requestLog (RawClient& client, TestDriver& driver)
{
    for (std::uint32_t i = 0; i < driver.events.size(); ++i)
    {
        CommandEnvelope envelope {};
        envelope.code = ReadEventEntry;
        envelope.words[0] = i;
        client.exchange (IOCTL_DEVICE_COMMAND, envelope);
    }

    driver.forgetRecords();
}

/** They take so long that each would be measured only once. */
constexpr int numLogReadings = 5;

/** Reading a full log into a list, against the same requests in a loop. */
void capture (benchmark::State& state)
{
    const TestMachine machine;
    TestDriver driver (machine);
    fillLog (driver);

    DeviceList devices;
    devices.getDevice (0)->open();
    RawClient client (machine.getInterfaceFolder ("device"));

    measureRatio (
        state,
        1.1,
        [&] { const EventList list (devices.getDevices(), 0); },
        [&] { requestLog (client, driver); });
}

BENCHMARK (capture)->Iterations (numLogReadings)->UseManualTime()->Unit (benchmark::kMillisecond);

/** All that the event window holds for two full logs, painted once, against its requests: each log is read twice. */
void openEventWindow (benchmark::State& state)
{
    const TestMachine machine;
    TestDriver one (machine, { .name = "one" }), two (machine, { .name = "two" });
    RawClient clientOfOne (machine.getInterfaceFolder ("one")), clientOfTwo (machine.getInterfaceFolder ("two"));
    fillLog (one);
    fillLog (two);

    DeviceList devices;

    for (const auto& device : devices.getDevices())
        device->open();

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

BENCHMARK (openEventWindow)->Iterations (numLogReadings)->UseManualTime()->Unit (benchmark::kMillisecond);

} // namespace
