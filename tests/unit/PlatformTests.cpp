#include "device/DeviceList.h"
#include "platform/AccessGuard.h"
#include "platform/InstanceLock.h"
#include "platform/linux/Section.h"
#include "protocol/StatisticsBlock.h"
#include "stats/Column.h"
#include "tests/unit/support/TestDriver.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>

using Reply = TestDriver::Reply;

namespace
{

/** The only interface of a machine, and its driver. */
struct OneDevice
{
    explicit OneDevice (const TestDriver::Setup& setup = {}) : driver (machine, setup) {}

    const StatisticsBlock* getBlock() const
    {
        return reinterpret_cast<const StatisticsBlock*> (std::uintptr_t { device->getStatisticsAddress() });
    }

    const TestMachine machine;
    TestDriver driver;
    const DeviceList devices;
    const HwDevice::Ptr device = devices.getDevice (0);
};

/** Whether a block can be read after something has happened in the midst of the reading. */
bool canRead (
    const StatisticsBlock* block,
    const std::function<void()>& happening = [] {})
{
    volatile std::int32_t value = 0; // a read whose result nobody wants is none once it is optimised
    return AccessGuard::readBlock (block,
                                   [&] (const auto& reader)
                                   {
                                       happening();
                                       value = reader.template read<std::int32_t> (0);
                                   });
}

/** A driver that hangs is waited for once, whatever the view does, and all that it has is shown when it answers at
 * last. */
TEST (PlatformTests, silenceOutlivesRebuildsAndWhatIsLateIsShown)
{
    constexpr int manyRebuilds = 300;

    for (const auto first : { TestDriver::mapStatistics, TestDriver::streamStatus })
    {
        OneDevice one;
        one.driver.streamStatusWords[DriverProtocol::sampleRateWord] = 48000;
        Silence silence (one.driver, first);
        const auto numDescriptors = countOfProcess ("fd");
        one.device->open();
        one.device->readStreamStatus();

        for (int i = 0; i < manyRebuilds; ++i)
            one.device->reopen();

        EXPECT_EQ (one.device->readStreamStatus(), 1);
        EXPECT_LE (countOfProcess ("fd"), numDescriptors + 3);
        EXPECT_EQ (one.getBlock() != nullptr, first != TestDriver::mapStatistics);

        silence.end();
        FirmwareCounters counters;
        EXPECT_TRUE (waitFor ([&] { return one.device->readFirmwareCounters (counters) == 0; }));
        EXPECT_TRUE (canRead (one.getBlock())) << "it was asked again";
        EXPECT_EQ (one.device->readStreamStatus(), 0);
        EXPECT_EQ (one.device->getSampleRate(), 48000u);
        EXPECT_EQ (one.driver.count (TestDriver::mapStatistics), 1) << "the late answer would do";
        EXPECT_EQ (one.driver.count (TestDriver::streamStatus), 1);

        const auto* block = one.getBlock();
        one.device->close();
        EXPECT_FALSE (canRead (block));
    }
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

/** A driver that hands out a section with every reply uses up neither the address space nor the descriptors. */
TEST (PlatformTests, sectionsThatNobodyAskedForAreNotHoarded)
{
    OneDevice one;
    one.device->open();
    const auto numDescriptors = countOfProcess ("fd");

    for (auto reply : { Reply::failure (1), Reply::success (Machine::Bytes (64)) })
    {
        reply.handsOutSection = true;
        one.driver.answerWith (TestDriver::streamStatus, reply);

        for (int i = 0; i < 200; ++i)
            one.device->readStreamStatus();

        EXPECT_LE (countOfProcess ("fd"), numDescriptors + 16);
    }
}

TEST (PlatformTests, onlyMemoryFilesAreSections)
{
    EXPECT_EQ (Section::make (FileDescriptor (::open ("/dev/zero", O_RDONLY | O_CLOEXEC))), nullptr);
    EXPECT_NE (Section::make (FileDescriptor (::memfd_create ("section", MFD_CLOEXEC))), nullptr);
}

//==============================================================================
/** Rows before the end of the section are new, the rest stay. */
TEST (AccessGuardTests, shortSectionsYieldTheFiguresTheyHold)
{
    constexpr double msPerTick = 1000.0 / 1000000;

    // Playback count, host average, offset average.
    for (const auto& [size, expected] : { std::pair { 0u, "1|1.000 msec|1.000 msec" },
                                          std::pair { 0x7fu, "1|1.000 msec|1.000 msec" },
                                          std::pair { 0x83u, "7|1.000 msec|1.000 msec" },
                                          std::pair { 155u, "7|2.000 msec|1.000 msec" },
                                          std::pair { 156u, "7|2.000 msec|3.000 msec" },
                                          std::pair { 5000u, "7|2.000 msec|3.000 msec" } })
    {
        StatisticsBlock block {};
        block.recordAverage = 100000;
        block.playbackBufferCount = 1;
        block.hostAverage = block.offsetAverage = 1000;
        Column column ("Deck");
        column.update (&block, msPerTick);

        OneDevice one ({ .sectionSize = size });
        block.playbackBufferCount = 7;
        block.hostAverage = 2000;
        block.offsetAverage = 3000;
        one.driver.setStatistics (block);
        one.device->open();
        column.update (one.getBlock(), msPerTick);
        EXPECT_EQ (column.getText (1) + "|" + column.getText (16) + "|" + column.getText (21), expected) << size;
    }
}

/** On two threads at once, on one of them again, while the section goes away under the readers. */
TEST (AccessGuardTests, vanishingSectionsEndReadingsOnAnyThread)
{
    constexpr int rounds = 20;

    for (int round = 0; round < rounds; ++round)
    {
        OneDevice one;
        one.device->open();
        const auto* block = one.getBlock();
        ASSERT_TRUE (canRead (block));

        std::promise<void> reading, cut;
        auto other = std::async (std::launch::async,
                                 [&]
                                 {
                                     return canRead (block,
                                                     [&]
                                                     {
                                                         reading.set_value();
                                                         cut.get_future().wait();
                                                     });
                                 });

        EXPECT_FALSE (canRead (block,
                               [&]
                               {
                                   reading.get_future().wait();
                                   one.driver.cutSection();
                                   cut.set_value();
                               }));
        EXPECT_FALSE (other.get());
        EXPECT_FALSE (canRead (block));
    }
}

} // namespace
