#include "drivers/simulator/Orders.h"
#include "drivers/simulator/Simulator.h"
#include "tests/unit/support/Client.h"
#include "tests/unit/support/TestDriver.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

namespace
{
using namespace Machine;
using namespace Simulation;
using namespace DriverProtocol;
namespace fs = std::filesystem;

// Not an error code that a reply could carry.
constexpr std::uint32_t noConnection = 0xFFFF0001;

std::string contentOf (const fs::path& file)
{
    std::ifstream stream (file, std::ios::binary);
    return { std::istreambuf_iterator<char> (stream), {} };
}

std::int64_t testTime = 0;

/** A simulator with two devices. The test tells it when to serve and how time passes. */
class SimulatorOrders : public testing::Test
{
protected:
    SimulatorOrders()
    {
        auto pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
        root = ::mkdtemp (pattern.data());

        // Longer than a socket address can hold.
        machine = root / std::string (120, 'm');
        options.machine = machine;
        options.names = { "A", "B" };
        options.controllers = { "PCI\\A" };
        testTime = 1'000'000'000;
        EXPECT_EQ (simulator->start (options), "");
    }

    ~SimulatorOrders() override
    {
        simulator.reset();
        fs::remove_all (root);
    }

    std::string order (std::string_view line) { return executeOrder (*simulator, line); }
    bool isRefused (std::string_view line) { return order (line).starts_with ("error: "); }
    fs::path interfaces() const { return machine / "interfaces"; }

    fs::path folderOf (int index) const
    {
        const std::set<fs::path> folders (fs::directory_iterator (interfaces()), {});
        return *std::next (folders.begin(), index);
    }

    Section& getSection (std::string_view name) const { return simulator->findDevice (name)->getServer().getSection(); }

    /** The error code of the reply to a request. */
    std::uint32_t ask (const Client& client, const Bytes& packet)
    {
        EXPECT_GE (::send (client.socket.get(), packet.data(), packet.size(), MSG_NOSIGNAL), 0);
        simulator->serve(); // accepts a new connection
        simulator->serve();

        // A reply begins with its error code.
        std::uint32_t error = 0;
        const auto size = ::recv (client.socket.get(), &error, sizeof (error), MSG_DONTWAIT);
        return size > 0 ? error : noConnection;
    }

    std::uint32_t ask (const Client& client, CommandCode code, std::uint8_t outputSize = sizeof (CommandEnvelope))
    {
        Bytes packet { 0x08, 0x20, 0x1D, 0, outputSize, 0, 0, 0 };
        packet.resize (8 + sizeof (CommandEnvelope));
        packet[16] = static_cast<std::uint8_t> (code);
        return ask (client, packet);
    }

    Options options;
    fs::path root, machine;
    std::optional<Simulator> simulator { std::in_place, [] { return testTime; } };
};

TEST_F (SimulatorOrders, ServeADeviceAsProgramsUseIt)
{
    EXPECT_EQ (fs::status (machine).permissions(), fs::perms::owner_all);
    EXPECT_EQ (contentOf (folderOf (1) / "registry/unique_name"), std::string ("B\0", 2));

    // After the reply to a reset the cleared figures can be read, and a reader cannot change them.
    const Client client (folderOf (0));
    const FileDescriptor section (::dup (getSection ("A").getReadOnlyDescriptor()));
    StatisticsBlock block {};
    EXPECT_EQ (ask (client, ResetStatistics), noError);
    EXPECT_EQ (::pread (section.get(), &block, sizeof (block), 0), 156);
    EXPECT_EQ (+block.recordBufferCount, 0);
    EXPECT_LT (::pwrite (section.get(), "x", 1, 0), 0);

    // A truncated section stays empty when the driver publishes its next figures.
    EXPECT_EQ (order ("take-view A"), "ok");
    EXPECT_EQ (::lseek (section.get(), 0, SEEK_END), 0);
    getSection ("A").cut();
    getSection ("A").write (&block, sizeof (block));
    EXPECT_EQ (::lseek (getSection ("A").getReadOnlyDescriptor(), 0, SEEK_END), 0);
}

TEST_F (SimulatorOrders, SurviveHostileRequests)
{
    const Client client (folderOf (0)), other (folderOf (1));
    EXPECT_EQ (ask (client, ReadStreamStatus, 63), insufficientBuffer);
    EXPECT_EQ (ask (client, Bytes (8, 0xFF)), invalidFunction);

    // A packet that is too long is refused unread; one that is too short cannot be answered.
    EXPECT_EQ (ask (client, Bytes (5000)), invalidParameter);
    EXPECT_EQ (ask (client, Bytes (7)), noConnection);
    EXPECT_EQ (ask (other, ReadStreamStatus), noError);
    EXPECT_EQ (order ("counts A"),
               "ok open=1 stream-status=1 map-statistics=0 reset-statistics=0 event-entry=0 probe=0 read-counters=0 "
               "clear-counters=0 other=1");
}

TEST_F (SimulatorOrders, StartReplacesWhatAKilledSimulatorLeft)
{
    const auto first = folderOf (0), second = folderOf (1), foreign = interfaces() / "foreign";
    const auto unused = interfaces() / ("9" + first.filename().string());
    simulator.reset();

    // A dead server leaves a socket that nobody listens on. Files of others are not mistaken for one.
    for (const auto& path : { first / "registry", second, unused / "registry", foreign / "registry" })
        fs::create_directories (path);

    for (const auto& path : { first / "registry/unique_name", first / "driver", second / "notes" })
        std::ofstream (path) << "old";

    options.names = { "B" };
    simulator.emplace ([] { return testTime; });
    EXPECT_EQ (simulator->start (options), "");
    EXPECT_EQ (contentOf (first / "registry/unique_name"), std::string ("B\0", 2));
    EXPECT_TRUE (isRefused ("plug C"));
    EXPECT_EQ (contentOf (second / "notes"), "old");
    EXPECT_TRUE (fs::exists (foreign / "registry"));
    EXPECT_FALSE (fs::exists (unused));
}

TEST_F (SimulatorOrders, MachineFolderLeavesOtherThingsAlone)
{
    // A second folder in the same place removes nothing of the first.
    EXPECT_NE (MachineFolder().create (machine, { "PCI\\C" }), "");
    EXPECT_EQ (contentOf (machine / "controllers/controller-0000"), "PCI\\A\n");
    std::ofstream (machine / "notes") << "mine";
    simulator.reset();
    fs::create_directory_symlink (machine, root / "link");

    for (const auto& path : { machine / "notes", root / "no/such", root / "link" })
        EXPECT_NE (MachineFolder().create (path, {}), "") << path;

    EXPECT_EQ (contentOf (machine / "notes"), "mine");
    EXPECT_EQ (std::distance (fs::directory_iterator (machine), {}), 1);
}

TEST_F (SimulatorOrders, WrongOnesChangeNothing)
{
    const auto before = order ("status");

    for (const auto* line : { "", "plug A", "unplug C", "rate A 48000.0", "fill A 16385", "fail A open 2", "quit now" })
        EXPECT_TRUE (isRefused (line)) << line;

    EXPECT_EQ (order ("status"), before);
}

//==============================================================================
TEST (SimulatorInterface, RefusesTakenAndImpossibleNames)
{
    const TestMachine machine;
    const TestDriver driver (machine);

    for (const auto* name : { "device", "", ".x", "a/b" })
        EXPECT_THROW (TestDriver (machine, { .name = name, .present = false }).plugIn(), std::runtime_error) << name;

    // The earlier interface can still be opened.
    const Client client (machine.getInterfaceFolder ("device").getFullPathName().toStdString());
}

} // namespace
