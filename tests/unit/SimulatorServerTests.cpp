#include "drivers/simulator/Orders.h"
#include "drivers/simulator/Simulator.h"
#include "tests/unit/support/TestDriver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{
using namespace Machine;
using namespace Simulation;
using namespace DriverProtocol;
namespace fs = std::filesystem;
using Names = std::vector<std::string>;

/** A reply as it arrives, and the descriptor that came with it. */
struct Answer
{
    std::uint32_t error() const { return words[0]; }

    ssize_t size = -1;                                  /**< -1: nothing has come; 0: the connection is closed. */
    std::array<std::uint32_t, 50> words { 0xEEEEEEEE }; /**< Not a Windows error until a reply has come. */
    FileDescriptor section;
};

/** One connection to a driver socket, byte by byte and without waiting. */
struct Client
{
    explicit Client (const fs::path& folder)
    {
        const FileDescriptor descriptor (::open (folder.c_str(), O_PATH | O_CLOEXEC));
        sockaddr_un address { AF_UNIX, {} };
        std::snprintf (address.sun_path, sizeof (address.sun_path), "/proc/self/fd/%d/driver", descriptor.get());
        connected = ::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address)) == 0;
    }

    Answer receive() const
    {
        Answer answer;
        iovec bytes { answer.words.data(), sizeof (answer.words) };
        alignas (cmsghdr) std::array<char, CMSG_SPACE (sizeof (int))> control {};
        msghdr message { nullptr, 0, &bytes, 1, control.data(), control.size(), 0 };
        answer.size = ::recvmsg (socket.get(), &message, MSG_CMSG_CLOEXEC);

        if (const auto* header = CMSG_FIRSTHDR (&message); answer.size > 0 && header != nullptr)
            answer.section = FileDescriptor (*reinterpret_cast<const int*> (CMSG_DATA (header)));

        return answer;
    }

    FileDescriptor socket { ::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) };
    bool connected = false;
};

std::string contentOf (const fs::path& file)
{
    std::ifstream stream (file, std::ios::binary);
    return { std::istreambuf_iterator<char> (stream), {} };
}

Names split (const std::string& list, const char* separator)
{
    Names words;

    for (const auto& word : juce::StringArray::fromTokens (list, separator, {}))
        words.push_back (word.toStdString());

    return words;
}

std::int64_t testTime = 0;

/** A simulator with two devices, whose time and whose turns the test gives it. */
class SimulatorOrders : public testing::Test
{
protected:
    SimulatorOrders()
    {
        auto pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
        root = ::mkdtemp (pattern.data());

        // Longer than a socket's address has room for.
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
    fs::path interfaces() const { return machine / "interfaces"; }

    fs::path folderOf (int index) const
    {
        auto folders = juce::File (interfaces().string()).findChildFiles (juce::File::findDirectories, false);
        folders.sort();
        return folders[index].getFullPathName().toStdString();
    }

    Answer ask (const Client& client, const Bytes& packet)
    {
        EXPECT_GE (::send (client.socket.get(), packet.data(), packet.size(), MSG_NOSIGNAL), 0);
        simulator->serve(); // accepts a new connection
        simulator->serve();
        return client.receive();
    }

    Answer ask (const Client& client, CommandCode code, std::uint8_t outputSize = sizeof (CommandEnvelope))
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

    const Client client (folderOf (0));
    const auto mapped = ask (client, MapStatistics);
    EXPECT_EQ (mapped.size, 4 + 64);
    StatisticsBlock block {};

    const auto readCount = [&]
    {
        EXPECT_EQ (::pread (mapped.section.get(), &block, sizeof (block), 0), 156);
        return block.recordBufferCount;
    };

    const auto before = readCount();
    testTime += 10'000'000;
    simulator->serve();
    EXPECT_NEAR (readCount(), before + 187, 1);
    EXPECT_EQ (ask (client, ResetStatistics).error(), noError);
    EXPECT_EQ (readCount(), 0);
    EXPECT_LT (::pwrite (mapped.section.get(), "x", 1, 0), 0);

    // After the cut, the driver's next figures do not bring it back.
    simulator->findDevice ("A")->getServer().getSection().cut();
    testTime += 10'000'000;
    simulator->serve();
    EXPECT_EQ (::pread (mapped.section.get(), &block, sizeof (block), 0), 0);

    EXPECT_EQ (order ("rate A 96000"), "ok");
    EXPECT_EQ (order ("buffer all 64"), "ok");
    const auto status = ask (client, ReadStreamStatus);
    EXPECT_EQ (status.words[4 + sampleRateWord], 96000U);
    EXPECT_EQ (status.words[4 + bufferSizeWord], 64U);
    EXPECT_EQ (order ("fill all 10"), "ok");
    EXPECT_EQ (order ("status"),
               "ok interfaces=2; A rate=96000 buffer=64 events=10 connections=1; B rate=48000 buffer=64 events=10 "
               "connections=0");
}

TEST_F (SimulatorOrders, SurviveHostileRequests)
{
    const Client client (folderOf (0)), other (folderOf (1));
    EXPECT_EQ (ask (client, ReadStreamStatus, 63).error(), insufficientBuffer);
    EXPECT_EQ (ask (client, Bytes (8, 0xFF)).error(), invalidFunction);

    // What is too long is refused without being handled; what is too short cannot be answered.
    EXPECT_EQ (ask (client, Bytes (5000)).error(), invalidParameter);
    EXPECT_EQ (ask (client, Bytes (7)).size, 0);
    EXPECT_EQ (ask (other, ReadStreamStatus).error(), noError);
    EXPECT_EQ (order ("counts A"),
               "ok open=1 stream-status=1 map-statistics=0 reset-statistics=0 event-entry=0 probe=0 read-counters=0 "
               "clear-counters=0 other=1");
}

TEST_F (SimulatorOrders, MakeRequestsFailOrWait)
{
    const Client client (folderOf (0));
    EXPECT_EQ (order ("fail A stream-status 2"), "ok");
    EXPECT_EQ (ask (client, MapStatistics).error(), noError);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), noError);
    EXPECT_EQ (order ("fail A stream-status always"), "ok");
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (order ("fail A stream-status never"), "ok");

    EXPECT_EQ (order ("stop A"), "ok");
    EXPECT_EQ (ask (client, ReadStreamStatus).size, -1);
    EXPECT_EQ (order ("resume A"), "ok");
    EXPECT_EQ (client.receive().error(), noError);

    EXPECT_EQ (order ("fail A open always"), "ok");
    EXPECT_FALSE (Client (folderOf (0)).connected);
    EXPECT_EQ (order ("fail A open never"), "ok");
    EXPECT_TRUE (Client (folderOf (0)).connected);

    // A device that goes leaves nobody waiting.
    EXPECT_EQ (order ("stop A"), "ok");
    EXPECT_EQ (ask (client, ReadStreamStatus).size, -1);
    EXPECT_EQ (order ("unplug A"), "ok");
    EXPECT_EQ (client.receive().error(), deviceNotConnected);
}

TEST_F (SimulatorOrders, PlugAndUnplug)
{
    const auto place = folderOf (0);
    const Client client (place);
    const auto mapped = ask (client, MapStatistics);
    const Client unheard (place);
    EXPECT_EQ (order ("unplug A"), "ok");
    EXPECT_FALSE (fs::exists (place));
    EXPECT_EQ (fs::file_size ("/proc/self/fd/" + std::to_string (mapped.section.get())), 0U);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), deviceNotConnected);
    EXPECT_EQ (ask (unheard, ReadStreamStatus).error(), deviceNotConnected);
    EXPECT_EQ (order ("plug A"), "ok A");
    EXPECT_EQ (order ("plug"), "ok Tamrix-1");

    const Client other (place);
    EXPECT_EQ (ask (other, ReadStreamStatus).error(), noError);
    EXPECT_EQ (order ("kill all"), "ok");
    EXPECT_EQ (other.receive().size, 0);
    EXPECT_TRUE (fs::is_empty (interfaces()));
    simulator.reset();
    EXPECT_FALSE (fs::exists (machine));
}

TEST_F (SimulatorOrders, StartReplacesWhatAKilledSimulatorLeft)
{
    const auto first = folderOf (0), second = folderOf (1), foreign = interfaces() / "foreign";
    const auto unused = interfaces() / ("9" + first.filename().string());
    simulator.reset();

    // The socket of a dead server is a file that nobody listens to. What others have put there is not taken for such.
    for (const auto& path : { first / "registry", second, unused / "registry", foreign / "registry" })
        fs::create_directories (path);

    for (const auto& path : { first / "registry/unique_name", first / "driver", second / "notes" })
        std::ofstream (path) << "old";

    options.names = { "B" };
    simulator.emplace ([] { return testTime; });
    EXPECT_EQ (simulator->start (options), "");
    EXPECT_EQ (contentOf (first / "registry/unique_name"), std::string ("B\0", 2));
    EXPECT_EQ (order ("plug C").rfind ("error: ", 0), 0U);
    EXPECT_EQ (contentOf (second / "notes"), "old");
    EXPECT_TRUE (fs::exists (foreign / "registry"));
    EXPECT_FALSE (fs::exists (unused));
}

TEST_F (SimulatorOrders, MachineFolderLeavesOtherThingsAlone)
{
    // A second one in the same place takes nothing away from the first.
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

    for (const auto& line : split (";  ;bogus;plug A;plug all;plug a b;unplug;unplug C;rate A;rate A 1;rate A 48000.0;"
                                   "rate A -48000;rate A 4294967296;rate C 48000;buffer all 8193;fill A 16385;"
                                   "fail A bogus;fail A probe sometimes;fail A open 2;glitch;quit now",
                                   ";"))
        EXPECT_EQ (order (line).rfind ("error: ", 0), 0U) << line;

    EXPECT_EQ (order ("status"), before);
    EXPECT_FALSE (simulator->isQuitting());
}

//==============================================================================
TEST (SimulatorInterface, RefusesTakenAndImpossibleNames)
{
    const TestMachine machine;
    const TestDriver driver (machine);

    for (const auto* name : { "device", "", ".x", "a/b" })
        EXPECT_THROW (TestDriver (machine, { .name = name, .present = false }).plugIn(), std::runtime_error) << name;

    EXPECT_TRUE (Client (machine.getInterfaceFolder ("device").getFullPathName().toStdString()).connected);
}

std::string parse (const std::string& line, Options& options)
{
    auto words = split ("quendel-simulator" + line, " ");
    std::vector<char*> arguments (words.size() + 1, nullptr);
    std::transform (words.begin(), words.end(), arguments.begin(), [] (auto& word) { return word.data(); });
    return parseOptions (static_cast<int> (words.size()), arguments.data(), options);
}

TEST (SimulatorOptions, AreReadStrictly)
{
    Options options;
    EXPECT_EQ (parse ({}, options), "");
    EXPECT_EQ (options.names.size(), 2U);
    EXPECT_EQ (parse (" --interfaces 3 --names=A,B --rate 96000 --controllers X,Y", options), "");
    EXPECT_EQ (options.names, (Names { "A", "B", "" }));
    EXPECT_EQ (options.controllers, (Names { "X", "Y" }));
    EXPECT_EQ (options.sampleRate, 96000U);

    for (const auto& line : split (" --rate; --rate 0x10; --rate 5; --buffer=\t64; --interfaces 65; --interfaces -1;"
                                   " --names A,A; --names A,,B; --names A,B --interfaces 1; --controllers 65;"
                                   " --seed 99999999999999999999999; --machine=; --unknown; -x; word; --names "
                                       + std::string (64, 'x'),
                                   ";"))
        EXPECT_NE (parse (line, options = {}), "") << line;
}
} // namespace
