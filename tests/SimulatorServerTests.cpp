#include "simulator/server/Orders.h"
#include "simulator/server/Simulator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{
using namespace Simulation;
using namespace DriverProtocol;
namespace fs = std::filesystem;

/** A reply as it arrives, and the descriptor that came with it. */
struct Answer
{
    Bytes packet;
    FileDescriptor section;

    std::uint32_t error() const
    {
        std::uint32_t word = 0xEEEEEEEE;
        std::memcpy (&word, packet.data(), std::min (packet.size(), sizeof (word)));
        return word;
    }
};

/** One connection to a driver socket. */
class Client
{
public:
    explicit Client (const fs::path& folder)
        : socket (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const FileDescriptor descriptor (::open (folder.c_str(), O_PATH | O_CLOEXEC));
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        std::snprintf (address.sun_path, sizeof (address.sun_path), "/proc/self/fd/%d/driver", descriptor.get());
        connected = ::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address)) == 0;
    }

    void send (const Bytes& packet)
    {
        EXPECT_GE (::send (socket.get(), packet.data(), packet.size(), MSG_NOSIGNAL), 0);
    }

    template <typename Block>
    void send (std::uint32_t controlCode, const Block& block, std::uint32_t outputSize = sizeof (Block))
    {
        Bytes packet (8 + sizeof (block));
        std::memcpy (packet.data(), &controlCode, 4);
        std::memcpy (packet.data() + 4, &outputSize, 4);
        std::memcpy (packet.data() + 8, &block, sizeof (block));
        send (packet);
    }

    void sendCommand (CommandCode code)
    {
        CommandEnvelope envelope {};
        envelope.code = code;
        send (IOCTL_DEVICE_COMMAND, envelope);
    }

    /** What has arrived; nothing when there is no packet. */
    std::optional<Answer> receive()
    {
        Answer answer { Bytes (1000), {} };
        iovec bytes { answer.packet.data(), answer.packet.size() };
        alignas (cmsghdr) std::array<char, CMSG_SPACE (sizeof (int))> control {};
        msghdr message {};
        message.msg_iov = &bytes;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const auto size = ::recvmsg (socket.get(), &message, MSG_CMSG_CLOEXEC);

        if (size < 0)
            return {};

        if (const auto* header = CMSG_FIRSTHDR (&message); header != nullptr)
        {
            int descriptor = -1;
            std::memcpy (&descriptor, CMSG_DATA (header), sizeof (descriptor));
            answer.section = FileDescriptor (descriptor);
        }

        answer.packet.resize (static_cast<std::size_t> (size));
        return answer;
    }

    /** True once the server has closed the connection and every packet has been received. */
    bool isClosed()
    {
        const auto answer = receive();
        return answer && answer->packet.empty();
    }

    bool connected = false;

private:
    FileDescriptor socket;
};

off_t sizeOf (const FileDescriptor& file)
{
    struct stat status
    {
    };
    return ::fstat (file.get(), &status) == 0 ? status.st_size : -1;
}

std::string contentOf (const fs::path& file)
{
    std::ifstream stream (file, std::ios::binary);
    return { std::istreambuf_iterator<char> (stream), {} };
}

std::vector<std::string> namesIn (const fs::path& folder)
{
    std::vector<std::string> names;

    for (const auto& entry : fs::directory_iterator (folder))
        names.push_back (entry.path().filename());

    std::sort (names.begin(), names.end());
    return names;
}

class TemporaryFolder : public testing::Test
{
protected:
    TemporaryFolder()
    {
        auto pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
        root = ::mkdtemp (pattern.data());

        // Longer than a socket's address has room for.
        machine = root / std::string (120, 'm');
    }

    ~TemporaryFolder() override { fs::remove_all (root); }

    fs::path root, machine;
};

//==============================================================================
/** Answers with what the test wants, and keeps what it was asked. */
struct ScriptedHandler final : RequestHandler
{
    void received (const Request&) override { ++numReceived; }

    Reply handle (const Request& request) override
    {
        lastCode = request.controlCode;
        lastOutputSize = request.outputSize;
        lastInput.assign (request.input.begin(), request.input.end());
        return reply;
    }

    Reply reply = Reply::success ({});
    int numReceived = 0;
    std::uint32_t lastCode = 0, lastOutputSize = 0;
    Bytes lastInput;
};

class SimulatorInterface : public TemporaryFolder
{
protected:
    SimulatorInterface()
    {
        EXPECT_EQ (folder.create (machine, {}), "");
        setup.machineFolder = machine;
        setup.name = "one";
        setup.capabilities = Bytes { 1, 2, 3 };
        setup.uniqueName = Bytes { 'A', 0 };
        setup.sectionSize = 40;
        server.emplace (setup, handler);
        EXPECT_EQ (server->plugIn(), "");
    }

    void serve()
    {
        while (server->serve (0))
        {
        }
    }

    MachineFolder folder;
    InterfaceSetup setup;
    ScriptedHandler handler;
    std::optional<InterfaceServer> server;
};

TEST_F (SimulatorInterface, HasTheFolderThatProgramsLookFor)
{
    const auto interfaces = machine / "interfaces";
    EXPECT_EQ (namesIn (interfaces), std::vector<std::string> { "one" });
    EXPECT_EQ (contentOf (interfaces / "one/registry/hwinfo_caps"), "\1\2\3");
    EXPECT_EQ (contentOf (interfaces / "one/registry/unique_name"), std::string ("A\0", 2));
    EXPECT_TRUE (fs::is_socket (interfaces / "one/driver"));
    EXPECT_EQ (fs::status (machine).permissions(), fs::perms::owner_all);

    // Taken names and impossible ones leave everything as it is.
    InterfaceServer same (setup, handler);
    EXPECT_NE (same.plugIn(), "");
    EXPECT_TRUE (Client (interfaces / "one").connected);

    for (const auto* name : { "", ".x", "a/b" })
    {
        setup.name = name;
        EXPECT_NE (InterfaceServer (setup, handler).plugIn(), "") << name;
    }

    // Values and the whole key may be missing.
    setup.name = "two";
    setup.hasRegistryKey = false;
    InterfaceServer bare (setup, handler);
    EXPECT_EQ (bare.plugIn(), "");
    EXPECT_EQ (namesIn (interfaces / "two"), std::vector<std::string> { "driver" });
}

TEST_F (SimulatorInterface, PassesBytesBothWays)
{
    Client client (machine / "interfaces/one");
    handler.reply = Reply::success (Bytes { 7, 8, 9 });
    client.send ({ 1, 2, 3, 4, 0xFF, 0, 0, 0x80, 5, 6 });
    serve();
    EXPECT_EQ (handler.lastCode, 0x04030201U);
    EXPECT_EQ (handler.lastOutputSize, 0x800000FFU);
    EXPECT_EQ (handler.lastInput, (Bytes { 5, 6 }));
    EXPECT_EQ (client.receive().value().packet, (Bytes { 0, 0, 0, 0, 7, 8, 9 }));

    // A faulty driver's bytes go out as they are.
    for (const auto& packet : { Bytes { 1 }, Reply::failure (0x01020304).packet, Bytes (500, 9) })
    {
        handler.reply.packet = packet;
        client.send (Bytes (8));
        serve();
        EXPECT_EQ (client.receive().value().packet, packet);
    }

    // What is too long is refused without being handled; what is too short cannot be answered.
    const auto numReceived = handler.numReceived;
    client.send (Bytes (5000));
    serve();
    EXPECT_EQ (client.receive().value().error(), invalidParameter);
    client.send (Bytes (7));
    serve();
    EXPECT_TRUE (client.isClosed());
    EXPECT_EQ (handler.numReceived, numReceived);

    Client other (machine / "interfaces/one");
    handler.reply.packet.clear();
    other.send (Bytes (8));
    serve();
    EXPECT_TRUE (other.isClosed());
    EXPECT_EQ (server->getNumConnections(), 0U);
    EXPECT_EQ (server->getNumOpens(), 2U);
}

TEST_F (SimulatorInterface, HandsOutItsSectionForReadingOnly)
{
    server->getSection().write ("abc", 3);
    Client client (machine / "interfaces/one");
    handler.reply.handsOutSection = true;
    client.send (Bytes (8));
    serve();

    const auto section = std::move (client.receive().value().section);
    ASSERT_EQ (sizeOf (section), 40);
    std::array<char, 3> bytes {};
    EXPECT_EQ (::pread (section.get(), bytes.data(), bytes.size(), 0), 3);
    EXPECT_EQ (std::string (bytes.data(), 3), "abc");
    EXPECT_LT (::pwrite (section.get(), "x", 1, 0), 0);
    EXPECT_NE (::ftruncate (section.get(), 0), 0);

    // After the cut, the driver's next figures do not bring it back.
    server->unplug();
    EXPECT_EQ (sizeOf (section), 0);
    server->getSection().write ("abc", 3);
    EXPECT_EQ (sizeOf (section), 0);
}

TEST_F (SimulatorInterface, HoldsAnswersBack)
{
    Client first (machine / "interfaces/one"), second (machine / "interfaces/one");
    server->setAnswering (false);
    first.send (Bytes (8));
    second.send (Bytes (8));
    serve();
    EXPECT_EQ (handler.numReceived, 2);
    EXPECT_FALSE (first.receive().has_value());

    server->setAnswering (true);
    EXPECT_EQ (first.receive().value().error(), 0U);
    EXPECT_EQ (second.receive().value().error(), 0U);

    // A device that goes leaves nobody waiting, and a client that leaves is not waited for.
    server->setAnswering (false);
    first.send (Bytes (8));
    serve();
    server->unplug();
    EXPECT_EQ (first.receive().value().error(), deviceNotConnected);
}

TEST_F (SimulatorInterface, GoesInOrderOrAtOnce)
{
    Client client (machine / "interfaces/one");
    serve();
    server->unplug();
    EXPECT_TRUE (fs::is_empty (machine / "interfaces"));
    EXPECT_EQ (server->getNumConnections(), 1U);
    client.send (Bytes (8));
    serve();
    EXPECT_EQ (client.receive().value().error(), deviceNotConnected);
    EXPECT_NE (server->plugIn(), "");

    InterfaceServer again (setup, handler);
    ASSERT_EQ (again.plugIn(), "");
    Client another (machine / "interfaces/one");
    again.serve (0);
    ASSERT_TRUE (another.connected);
    again.kill();
    EXPECT_TRUE (another.isClosed());
    EXPECT_TRUE (fs::is_empty (machine / "interfaces"));
}

TEST_F (SimulatorInterface, ReplacesWhatADeadServerLeft)
{
    server.reset();

    // The socket of a dead server is a file that nobody listens to.
    const auto stale = machine / "interfaces/one";
    fs::create_directories (stale / "registry");
    std::ofstream (stale / "registry/hwinfo_caps") << "old";
    std::ofstream (stale / "driver") << "";

    server.emplace (setup, handler);
    EXPECT_EQ (server->plugIn(), "");
    EXPECT_EQ (contentOf (stale / "registry/hwinfo_caps"), "\1\2\3");
    server.reset();

    fs::create_directories (stale);
    std::ofstream (stale / "notes") << "mine";
    server.emplace (setup, handler);
    EXPECT_NE (server->plugIn(), "");
    EXPECT_EQ (contentOf (stale / "notes"), "mine");
}

//==============================================================================
TEST_F (TemporaryFolder, MachineFolderLeavesOtherThingsAlone)
{
    {
        MachineFolder folder;
        EXPECT_EQ (folder.create (machine, { "PCI\\A", "PCI\\B" }), "");
        const auto controllers = namesIn (machine / "controllers");
        ASSERT_EQ (controllers.size(), 2U);
        EXPECT_EQ (contentOf (machine / "controllers" / controllers[0]), "PCI\\A\n");

        // A second one in the same place takes nothing away from the first.
        EXPECT_NE (MachineFolder().create (machine, { "PCI\\C" }), "");
        EXPECT_EQ (contentOf (machine / "controllers" / controllers[0]), "PCI\\A\n");
        std::ofstream (machine / "notes") << "mine";
    }

    EXPECT_EQ (namesIn (machine), std::vector<std::string> { "notes" });

    for (const auto& path : { machine / "notes", root / "no/such" })
        EXPECT_NE (MachineFolder().create (path, {}), "") << path;

    fs::create_directory_symlink (machine, root / "link");
    EXPECT_NE (MachineFolder().create (root / "link", {}), "");
    EXPECT_EQ (namesIn (machine), std::vector<std::string> { "notes" });
}

std::string parse (std::vector<std::string> words, Options& options)
{
    words.insert (words.begin(), "quendel-simulator");
    std::vector<char*> arguments (words.size() + 1, nullptr);
    std::transform (words.begin(), words.end(), arguments.begin(), [] (auto& word) { return word.data(); });

    return parseOptions (static_cast<int> (words.size()), arguments.data(), options);
}

TEST (SimulatorOptions, AreReadStrictly)
{
    Options options;
    EXPECT_EQ (parse ({}, options), "");
    EXPECT_EQ (options.names.size(), 2U);
    EXPECT_EQ (options.controllers.size(), 1U);
    EXPECT_EQ (parse ({ "--interfaces", "3", "--names=A,B", "--rate", "96000", "--controllers", "X,Y" }, options), "");
    EXPECT_EQ (options.names, (std::vector<std::string> { "A", "B", "" }));
    EXPECT_EQ (options.controllers, (std::vector<std::string> { "X", "Y" }));
    EXPECT_EQ (options.sampleRate, 96000U);
    EXPECT_EQ (parse ({ "--interfaces", "0" }, options = {}), "");
    EXPECT_TRUE (options.names.empty());

    using Words = std::vector<std::string>;

    for (const auto& words : { Words { "--rate" },
                               Words { "--rate", "0x10" },
                               Words { "--rate", "5" },
                               Words { "--buffer", " 64" },
                               Words { "--interfaces", "65" },
                               Words { "--interfaces", "-1" },
                               Words { "--names", "A,A" },
                               Words { "--names", "A,,B" },
                               Words { "--names", std::string (64, 'x') },
                               Words { "--names", "A,B", "--interfaces", "1" },
                               Words { "--seed", "99999999999999999999999" },
                               Words { "--controllers", "65" },
                               Words { "--machine", "" },
                               Words { "--unknown" },
                               Words { "-x" },
                               Words { "word" } })
        EXPECT_NE (parse (words, options = {}), "") << words.back();
}

//==============================================================================
std::int64_t testTime = 0;

class SimulatorOrders : public TemporaryFolder
{
protected:
    SimulatorOrders()
    {
        testTime = 1'000'000'000;
        options.machine = machine;
        options.names = { "A", "B" };
        simulator.emplace ([] { return testTime; });
        EXPECT_EQ (simulator->start (options), "");
    }

    std::string order (std::string_view line) { return executeOrder (*simulator, line); }
    fs::path folderOf (std::size_t index) const
    {
        return machine / "interfaces" / namesIn (machine / "interfaces").at (index);
    }

    Answer ask (Client& client, CommandCode code)
    {
        client.sendCommand (code);
        simulator->serve(); // accepts a new connection
        simulator->serve();
        return client.receive().value_or (Answer());
    }

    Options options;
    std::optional<Simulator> simulator;
};

TEST_F (SimulatorOrders, ServeADeviceAsProgramsUseIt)
{
    EXPECT_EQ (contentOf (folderOf (1) / "registry/unique_name"), std::string ("B\0", 2));
    EXPECT_EQ (fs::file_size (folderOf (1) / "registry/hwinfo_caps"), DeviceModel::capabilitiesSize);

    Client client (folderOf (0));
    const auto mapped = ask (client, MapStatistics);
    ASSERT_EQ (mapped.packet.size(), 4 + sizeof (CommandEnvelope));
    ASSERT_EQ (sizeOf (mapped.section), static_cast<off_t> (sizeof (StatisticsBlock)));

    const auto readCount = [&mapped]
    {
        StatisticsBlock block {};
        EXPECT_EQ (::pread (mapped.section.get(), &block, sizeof (block), 0), 156);
        return block.recordBufferCount;
    };

    const auto before = readCount();
    testTime += 10'000'000;
    simulator->serve();
    EXPECT_NEAR (readCount(), before + 187, 1);
    EXPECT_EQ (ask (client, ResetStatistics).error(), 0U);
    EXPECT_EQ (readCount(), 0);

    EXPECT_EQ (order ("rate A 96000"), "ok");
    EXPECT_EQ (order ("buffer all 64"), "ok");
    const auto status = ask (client, ReadStreamStatus);
    CommandEnvelope envelope;
    std::memcpy (&envelope, status.packet.data() + 4, sizeof (envelope));
    EXPECT_EQ (+envelope.words[sampleRateWord], 96000U);
    EXPECT_EQ (+envelope.words[bufferSizeWord], 64U);
    EXPECT_EQ (order ("fill all 10"), "ok");
    EXPECT_EQ (order ("status"),
               "ok interfaces=2; A rate=96000 buffer=64 events=10 connections=1; B rate=48000 buffer=64 events=10 "
               "connections=0");
}

TEST_F (SimulatorOrders, MakeRequestsFailOrWait)
{
    Client client (folderOf (0));
    EXPECT_EQ (order ("fail A stream-status 2"), "ok");
    EXPECT_EQ (ask (client, MapStatistics).error(), 0U);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), 0U);
    EXPECT_EQ (order ("fail A stream-status always"), "ok");
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), generalFailure);
    EXPECT_EQ (order ("fail A stream-status never"), "ok");

    EXPECT_EQ (order ("stop A"), "ok");
    EXPECT_TRUE (ask (client, ReadStreamStatus).packet.empty());
    EXPECT_EQ (order ("counts A"),
               "ok open=1 stream-status=5 map-statistics=1 reset-statistics=0 event-entry=0 probe=0 read-counters=0 "
               "clear-counters=0 other=0");
    EXPECT_EQ (order ("resume A"), "ok");
    EXPECT_EQ (client.receive().value().error(), 0U);

    EXPECT_EQ (order ("fail A open always"), "ok");
    EXPECT_FALSE (Client (folderOf (0)).connected);
    EXPECT_EQ (order ("fail A open never"), "ok");
    EXPECT_TRUE (Client (folderOf (0)).connected);
}

TEST_F (SimulatorOrders, PlugAndUnplug)
{
    const auto place = folderOf (0);
    Client client (place);
    ask (client, MapStatistics);
    EXPECT_EQ (order ("unplug A"), "ok");
    EXPECT_FALSE (fs::exists (place));
    EXPECT_EQ (ask (client, ReadStreamStatus).error(), deviceNotConnected);
    EXPECT_EQ (order ("plug A"), "ok A");
    EXPECT_TRUE (fs::exists (place));
    EXPECT_EQ (order ("plug"), "ok Tamrix-1");

    Client other (place);
    EXPECT_EQ (ask (other, ReadStreamStatus).error(), 0U);
    EXPECT_EQ (order ("kill all"), "ok");
    EXPECT_TRUE (other.isClosed());
    EXPECT_TRUE (fs::is_empty (machine / "interfaces"));
    EXPECT_EQ (order ("quit"), "ok");
    EXPECT_TRUE (simulator->isQuitting());
    simulator.reset();
    EXPECT_FALSE (fs::exists (machine));
}

TEST_F (SimulatorOrders, StartReplacesWhatAKilledSimulatorLeft)
{
    const auto names = namesIn (machine / "interfaces");
    simulator.reset();

    // What others have put there is not taken for such.
    const auto foreign = machine / "interfaces/foreign";
    fs::create_directories (foreign / "registry");

    for (const auto& name : names)
        fs::create_directories (machine / "interfaces" / name / "registry");

    options.names = { "B" };
    simulator.emplace ([] { return testTime; });
    EXPECT_EQ (simulator->start (options), "");
    EXPECT_EQ (namesIn (machine / "interfaces"), (std::vector<std::string> { names[0], "foreign" }));
}

TEST_F (SimulatorOrders, WrongOnesChangeNothing)
{
    const auto before = order ("status");

    for (const auto* line : { "",
                              "  ",
                              "bogus",
                              "plug A",
                              "plug all",
                              "plug a b",
                              "unplug",
                              "unplug C",
                              "rate A",
                              "rate A 1",
                              "rate A 48000.0",
                              "rate A -48000",
                              "rate A 4294967296",
                              "rate C 48000",
                              "buffer all 8193",
                              "fill A 16385",
                              "fail A bogus",
                              "fail A probe sometimes",
                              "fail A open 2",
                              "glitch",
                              "quit now" })
        EXPECT_EQ (order (line).rfind ("error: ", 0), 0U) << line;

    EXPECT_EQ (order ("status"), before);
    EXPECT_FALSE (simulator->isQuitting());
}
} // namespace
