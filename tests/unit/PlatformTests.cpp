#include "device/DeviceList.h"
#include "platform/AccessGuard.h"
#include "platform/InstanceLock.h"
#include "platform/UserSettings.h"
#include "platform/Win32.h"
#include "platform/linux/InterfaceWatcher.h"
#include "platform/linux/Patience.h"
#include "stats/Column.h"
#include "stats/StatisticsBlock.h"
#include "tests/unit/support/TestDriver.h"

#include <atomic>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>

using Reply = TestDriver::Reply;

namespace
{

//==============================================================================
HANDLE openInterface (const std::string& name)
{
    return CreateFileA (TestMachine::getInterfacePath (name).toRawUTF8(),
                        GENERIC_READ | GENERIC_WRITE,
                        FILE_SHARE_READ | FILE_SHARE_WRITE,
                        nullptr,
                        OPEN_EXISTING,
                        0,
                        nullptr);
}

/** One MapStatistics; the block's address, or 0 when it failed. */
std::uint32_t mapStatistics (HANDLE handle)
{
    DriverProtocol::CommandEnvelope envelope {};
    envelope.code = DriverProtocol::MapStatistics;
    DWORD returned = 0;

    return DeviceIoControl (handle,
                            DriverProtocol::IOCTL_DEVICE_COMMAND,
                            &envelope,
                            sizeof (envelope),
                            &envelope,
                            sizeof (envelope),
                            &returned,
                            nullptr)
                   == FALSE
               ? 0
               : envelope.words[0];
}

const StatisticsBlock* blockAt (std::uint32_t address)
{
    return reinterpret_cast<const StatisticsBlock*> (static_cast<std::uintptr_t> (address));
}

//==============================================================================
TEST (PlatformTests, openingNeedsAPresentInterfaceThatListens)
{
    const TestMachine machine;
    const TestDriver driver (machine);

    EXPECT_EQ (openInterface ("nothing"), INVALID_HANDLE_VALUE);
    EXPECT_EQ (GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ (openInterface ("../interfaces/device"), INVALID_HANDLE_VALUE);
    EXPECT_EQ (CreateFileA ("device", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);

    const auto handle = openInterface ("device");
    ASSERT_NE (handle, INVALID_HANDLE_VALUE);
    EXPECT_NE (CloseHandle (handle), FALSE);
    EXPECT_EQ (CloseHandle (INVALID_HANDLE_VALUE), FALSE);
    EXPECT_EQ (GetLastError(), ERROR_INVALID_HANDLE);
}

TEST (PlatformTests, requestsCopyOutWhatTheDriverSentAndKeepTheRest)
{
    const TestMachine machine;
    TestDriver driver (machine);
    const auto handle = openInterface ("device");

    driver.setOverride (
        [] (TestDriver::Kind, int number) {
            return number == 0 ? Reply::success (std::array<std::uint8_t, 2> { 1, 2 }) : Reply::failure (55);
        });

    std::uint8_t input = 0, output[] { 9, 9, 9 };
    DWORD returned = 99;
    EXPECT_NE (DeviceIoControl (handle, 1, &input, 1, output, 3, &returned, nullptr), FALSE);
    EXPECT_EQ (returned, 2u);
    EXPECT_EQ (std::memcmp (output, "\1\2\11", 3), 0);

    EXPECT_EQ (DeviceIoControl (handle, 1, &input, 1, output, 3, &returned, nullptr), FALSE);
    EXPECT_EQ (GetLastError(), 55u);
    EXPECT_EQ (std::memcmp (output, "\1\2\11", 3), 0);

    EXPECT_EQ (DeviceIoControl (INVALID_HANDLE_VALUE, 1, &input, 1, output, 3, &returned, nullptr), FALSE);
    EXPECT_EQ (GetLastError(), ERROR_INVALID_HANDLE);
    CloseHandle (handle);
}

/** The rest of what was read of one watch says nothing about the next. */
TEST (InterfaceWatcherTests, interfacesThatAreReplacedAreFollowedAsBefore)
{
    const TestMachine machine;
    const auto a = machine.getInterfaceFolder ("a"), interfaces = a.getParentDirectory();
    const auto old = interfaces.getSiblingFile ("old");
    a.createDirectory();

    InterfaceWatcher watcher;
    watcher.addListener();
    ASSERT_TRUE (interfaces.moveFileTo (old) && a.createDirectory() && old.getChildFile ("a").deleteRecursively());

    std::set<std::string> present { "a" };
    const auto follow = [&]
    {
        for (auto changes = watcher.fetchChanges(); ! changes.empty(); changes = watcher.fetchChanges())
            for (const auto& change : changes)
                change.arrived ? (void) present.insert (change.name) : (void) present.erase (change.name);

        return present.size();
    };

    EXPECT_EQ (follow(), 1u);
    a.deleteRecursively();
    EXPECT_EQ (follow(), 0u);
    watcher.removeListener();
}

/** A driver that hangs costs one time-out, not one per request, and nothing is mixed up once it answers again. */
TEST (PlatformTests, lateAnswersAreDroppedAndNothingIsMixedUp)
{
    const TestMachine machine;
    TestDriver driver (machine);
    const auto handle = openInterface ("device");
    const auto request = [&] (std::uint8_t tag)
    {
        std::uint8_t buffer[] { tag };
        DWORD returned = 0;
        const bool succeeded = DeviceIoControl (handle, 0, buffer, 1, buffer, 1, &returned, nullptr) != FALSE;
        return succeeded ? buffer[0] : std::uint8_t {};
    };

    std::mutex hanging;
    std::atomic<bool> answered { false };
    driver.setOverride (
        [&] (TestDriver::Kind, int number)
        {
            const std::scoped_lock waiting (hanging);
            answered = true;
            return Reply::success (std::array<std::uint8_t, 1> { static_cast<std::uint8_t> (number + 1) });
        });

    {
        const std::scoped_lock hang (hanging);
        EXPECT_EQ (request (1), 0);
        EXPECT_EQ (GetLastError(), ERROR_SEM_TIMEOUT);
        EXPECT_EQ (request (2), 0);
        EXPECT_EQ (GetLastError(), ERROR_SEM_TIMEOUT);
    }

    while (! answered)
        std::this_thread::yield();

    std::uint8_t tag = 0;

    while (tag == 0)
        tag = request (3);

    EXPECT_EQ (tag, 2) << "the request in between was never sent, the late answer never delivered";
    CloseHandle (handle);
}

/** Keeps a driver from answering requests of some kinds until it ends. */
struct Silence
{
    Silence (TestDriver& driver, const std::vector<TestDriver::Kind>& kinds)
    {
        driver.setOverride (
            [ended = ending.get_future().share(), kinds] (TestDriver::Kind kind, int) -> std::optional<Reply>
            {
                if (std::find (kinds.begin(), kinds.end(), kind) != kinds.end())
                    ended.wait();

                return {};
            });
    }

    void end() { ending.set_value(); }

    std::promise<void> ending;
};

bool canRead (std::uint32_t address)
{
    volatile std::int32_t value = 0; // a read whose result nobody wants is none once it is optimised
    return AccessGuard::readBlock (blockAt (address),
                                   [&value] (const auto& reader) { value = reader.template read<std::int32_t> (0); });
}

/** A driver that hangs is not waited for anew by each handle, and shows its statistics when it answers at last. */
TEST (PlatformTests, silenceIsKnownToTheNextHandleAndLateStatisticsAreShown)
{
    constexpr int manyRebuilds = 300;

    for (const auto first : { TestDriver::mapStatistics, TestDriver::streamStatus })
    {
        const TestMachine machine;
        TestDriver driver (machine);
        Silence silence (driver, { first });
        const DeviceList devices;
        const auto device = devices.getDevice (0);
        const auto numDescriptors = countOfProcess ("fd");
        device->open();
        device->readStreamStatus();

        for (int i = 0; i < manyRebuilds; ++i)
            device->reopen();

        EXPECT_EQ (device->readStreamStatus(), 1);
        EXPECT_LE (countOfProcess ("fd"), numDescriptors + 5);

        const auto address = device->getStatisticsAddress();
        ASSERT_NE (address, 0u);
        EXPECT_FALSE (canRead (address));

        silence.end();
        EXPECT_TRUE (waitFor ([&] { return device->readStreamStatus() == 0; }));
        EXPECT_TRUE (canRead (address)) << "at the address that was promised";
        EXPECT_EQ (driver.count (TestDriver::mapStatistics), first == TestDriver::mapStatistics ? 1 : 2);

        device->close();
        EXPECT_FALSE (canRead (address));
    }
}

TEST (PatienceTests, allSilentDriversShareOneAllowance)
{
    using namespace std::chrono_literals;

    Patience patience;
    Patience::Time now { 1h };
    Patience::Duration waited {};

    const auto ask = [&] (Patience::Duration answersAfter, bool wasLate = false)
    {
        const auto limit = patience.getLimit (now, wasLate);
        const auto wait = std::min (limit, answersAfter);
        patience.waited (now, now + wait, answersAfter <= limit);
        now += wait;
        waited += wait;
        return answersAfter <= limit;
    };

    EXPECT_FALSE (ask (40ms, true)) << "it was late before";
    EXPECT_TRUE (ask (500ms));

    for (int i = 0; i < 10000; ++i)
        EXPECT_TRUE (ask (90ms)) << "ordinary answers cost nothing";

    now += 1h;
    waited = {};

    for (int i = 0; i < 1000; ++i)
    {
        EXPECT_FALSE (ask (1h));
        EXPECT_EQ (i >= 64 || ask (3ms), true) << "those that answer are still heard after " << i;
    }

    EXPECT_LT (waited, Patience::whole + 64 * 3ms);
    now += 1s;
    EXPECT_TRUE (ask (200ms)) << "it comes back";
}

/** Another user's instance is not in the way of this one's, nor does its lock let any number of this one's start. */
TEST (InstanceLockTests, thereIsOneForEachUser)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";

    const auto enters = [] (uid_t user, int depth, const auto& self) -> int
    {
        const auto child = ::fork();

        if (child == 0)
        {
            // Nothing but this may happen in the copy of a process with threads.
            int result = ::seteuid (user) == 0 ? 0 : 100;
            juce::InterProcessLock lock (InstanceLock::getNameForUser ("Quendel test lock"));
            result += lock.enter (0) ? 1 : 0;
            ::_exit (result + (depth > 0 ? 10 * self (user, depth - 1, self) : 0));
        }

        int status = 0;
        ::waitpid (child, &status, 0);
        return WEXITSTATUS (status);
    };

    juce::InterProcessLock rootsLock (InstanceLock::getNameForUser ("Quendel test lock"));
    ASSERT_TRUE (rootsLock.enter (0));
    EXPECT_EQ (enters (0, 0, enters), 0) << "root's second";
    EXPECT_EQ (enters (12345, 1, enters), 1) << "somebody's first, and their second";
}

TEST (PlatformTests, sectionsLieBelow4GiBAndGoWithTheHandle)
{
    const TestMachine machine;
    TestDriver driver (machine);
    StatisticsBlock written {};
    written.playbackAverage = 4711;
    driver.setStatistics (written);

    const auto handle = openInterface ("device");
    const auto address = mapStatistics (handle);
    ASSERT_NE (address, 0u);
    EXPECT_EQ (blockAt (address)->playbackAverage, 4711);

    // A driver that hands one out with every reply does not use up the address space.
    int mapped = 1;

    while (mapStatistics (handle) != 0 && mapped < 1000)
        ++mapped;

    EXPECT_LT (mapped, 100);
    CloseHandle (handle);

    std::int64_t value = 1;
    EXPECT_FALSE (AccessGuard::readBlock (blockAt (address),
                                          [&] (const auto& reader)
                                          { value = reader.template read<std::int64_t> (0); }));
    EXPECT_EQ (value, 1);
}

TEST (PlatformTests, descriptorsOfRefusedRepliesAreNotKept)
{
    const TestMachine machine;
    TestDriver driver (machine);
    driver.setOverride (
        [] (TestDriver::Kind, int)
        {
            auto reply = Reply::failure (1);
            reply.handsOutSection = true;
            return reply;
        });

    const auto handle = openInterface ("device");
    mapStatistics (handle);
    const auto before = countOfProcess ("fd");

    for (int i = 0; i < 50; ++i)
        EXPECT_EQ (mapStatistics (handle), 0u);

    EXPECT_EQ (countOfProcess ("fd"), before);
    CloseHandle (handle);
}

//==============================================================================
/** Rows before the end of the section are new, the rest stay. */
TEST (AccessGuardTests, shortSectionsYieldTheFiguresTheyHold)
{
    struct Case
    {
        std::size_t size;
        const char* expected; // playback count, host average, offset average
    };

    for (const auto& c : { Case { 0, "0|0.000 msec|0.000 msec" },
                           Case { 40, "0|0.000 msec|0.000 msec" },
                           Case { 0x7f, "0|0.000 msec|0.000 msec" },
                           Case { 0x83, "7|0.000 msec|0.000 msec" },
                           Case { 155, "7|2.000 msec|0.000 msec" },
                           Case { 156, "7|2.000 msec|3.000 msec" },
                           Case { 5000, "7|2.000 msec|3.000 msec" } })
    {
        const TestMachine machine;
        TestDriver::Setup setup;
        setup.sectionSize = c.size;
        TestDriver driver (machine, setup);

        StatisticsBlock written {};
        written.recordAverage = 100000;
        written.playbackBufferCount = 7;
        written.hostAverage = 2000;
        written.offsetAverage = 3000;
        driver.setStatistics (written);

        const auto handle = openInterface ("device");
        const auto address = mapStatistics (handle);
        ASSERT_NE (address, 0u);

        Column column ("Deck");
        column.update (blockAt (address), 1000.0 / 1000000);
        EXPECT_EQ (column.getText (1) + "|" + column.getText (16) + "|" + column.getText (21), c.expected) << c.size;
        CloseHandle (handle);
    }
}

/** On several threads at once, again and again, while the section goes away under the readers. */
TEST (AccessGuardTests, vanishingSectionsEndReadingsOnAnyThread)
{
    constexpr int rounds = 20, readers = 3;

    for (int round = 0; round < rounds; ++round)
    {
        const TestMachine machine;
        TestDriver driver (machine);
        const auto handle = openInterface ("device");
        const auto* block = blockAt (mapStatistics (handle));
        ASSERT_NE (block, nullptr);

        std::atomic<int> reading { 0 }, ended { 0 };
        std::vector<std::thread> threads;

        for (int i = 0; i < readers; ++i)
            threads.emplace_back (
                [&]
                {
                    ++reading;
                    const auto readOnce = [&]
                    {
                        return AccessGuard::readBlock (block,
                                                       [] (const auto& reader)
                                                       {
                                                           for (std::size_t offset = 0; offset < 156; offset += 4)
                                                               (void) reader.template read<std::int32_t> (offset);
                                                       });
                    };

                    while (readOnce())
                    {
                    }

                    // And once more, now that the handler has run.
                    ended += readOnce() ? 0 : 1;
                });

        while (reading < readers)
            std::this_thread::yield();

        driver.cutSection();

        for (auto& thread : threads)
            thread.join();

        EXPECT_EQ (ended, readers);
        CloseHandle (handle);
    }
}

//==============================================================================
TEST (UserSettingsTests, keepTextsAndSurviveWhatTheFileHolds)
{
    const juce::String key ("HKEY_CURRENT_USER\\Software\\Vendrel");
    const auto home = juce::File::createTempFile ("home");
    home.createDirectory();
    const juce::String oldHome (std::getenv ("HOME"));
    ::setenv ("HOME", home.getFullPathName().toRawUTF8(), 1);
    const auto file = home.getChildFile (".config/Vendrel/Quendel.settings");

    EXPECT_EQ (UserSettings::getValue (key, "x", "12"), "12");
    EXPECT_FALSE (file.exists());

    UserSettings::setValue (key, "x", "-7");
    UserSettings::setValue (key, "y", "abc");
    EXPECT_TRUE (file.existsAsFile());
    EXPECT_EQ (UserSettings::getValue (key, "x", "12"), "-7");
    EXPECT_EQ (UserSettings::getValue (key, "y", "12"), "abc");

    file.replaceWithText ("<PROPERTIES><VALUE name=");
    EXPECT_EQ (UserSettings::getValue (key, "x", "12"), "12");

    ::setenv ("HOME", oldHome.toRawUTF8(), 1);
    home.deleteRecursively();
}

} // namespace
