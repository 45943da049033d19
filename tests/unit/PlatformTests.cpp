#include "events/EventReport.h"
#include "platform/AccessGuard.h"
#include "platform/InstanceLock.h"
#include "platform/linux/Section.h"
#include "protocol/StatisticsBlock.h"
#include "stats/Column.h"
#include "tests/unit/support/Devices.h"

#include <barrier>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>

using Reply = TestDriver::Reply;

namespace
{

const StatisticsBlock* getBlock (const OneDevice& one)
{
    return reinterpret_cast<const StatisticsBlock*> (std::uintptr_t { one.device->getStatisticsAddress() });
}

/** Whether a block can be read while something happens between two of its fields. */
bool canRead (
    const StatisticsBlock* block,
    const std::function<void()>& happening = [] {})
{
    volatile std::int32_t value = 0; // otherwise the optimiser would drop the read
    return AccessGuard::readBlock (block,
                                   [&] (const auto& reader)
                                   {
                                       happening();
                                       value = reader.template read<std::int32_t> (0);
                                   });
}

/** A driver that hangs is waited for only once, whatever the view does. Its figures are shown once it answers. */
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
        EXPECT_EQ (getBlock (one) != nullptr, first != TestDriver::mapStatistics);

        silence.end();
        FirmwareCounters counters;
        EXPECT_TRUE (waitFor ([&] { return one.device->readFirmwareCounters (counters) == 0; }));
        EXPECT_TRUE (canRead (getBlock (one))) << "it was asked again";
        EXPECT_EQ (one.device->readStreamStatus(), 0);
        EXPECT_EQ (one.device->getSampleRate(), 48000u);
        EXPECT_EQ (one.driver.count (TestDriver::mapStatistics), 1) << "the late answer would do";
        EXPECT_EQ (one.driver.count (TestDriver::streamStatus), 1);

        const auto* block = getBlock (one);
        one.device->close();
        EXPECT_FALSE (canRead (block));
    }
}

/** The toolkit would take another user's lock, which it cannot open, for its own. */
TEST (InstanceLockTests, eachUserHasAnother)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";

    const auto ours = InstanceLock::getNameForUser ("lock");
    ASSERT_EQ (::seteuid (12345), 0);
    const auto theirs = InstanceLock::getNameForUser ("lock");
    ASSERT_EQ (::seteuid (0), 0);
    EXPECT_NE (ours, theirs);
    EXPECT_EQ (ours, InstanceLock::getNameForUser ("lock"));
}

/** A driver that sends a section with every reply exhausts neither the address space nor the descriptors. */
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
/** Writes a report with that many rows and returns what the file holds afterwards. */
juce::String writeReport (
    const juce::File& file,
    int numRows,
    const std::function<bool (double)>& beforeEach = [] (double) { return true; })
{
    juce::Array<EventRecord> rows;
    rows.insertMultiple (0, EventRecord(), numRows);
    EventReport::write (file, rows, { "Deck" }, beforeEach);
    return file.loadFileAsString();
}

/** The file is one that can be opened but not deleted, not even by root. */
TEST (FullDiskTests, earlierReportThatCannotBeDeletedLosesItsLines)
{
    const juce::TemporaryFile temporary;
    const auto whole = writeReport (temporary.getFile(), 2);
    const FileDescriptor memory (::memfd_create ("report", MFD_CLOEXEC));
    const juce::File undeletable ("/proc/self/fd/" + juce::String (memory.get()));
    undeletable.appendText ("an earlier report that was longer, " + whole);
    EXPECT_EQ (writeReport (undeletable, 2), whole);
}

/** The file holds the beginning of the report, even if the disk has room again after a while. */
TEST (FullDiskTests, nothingFollowsLinesThatAreMissing)
{
    const juce::TemporaryFile temporary;
    const auto& file = temporary.getFile();
    const auto oldHandler = std::signal (SIGXFSZ, SIG_IGN);
    rlimit sizeLimit {};
    ::getrlimit (RLIMIT_FSIZE, &sizeLimit);
    int row = 0;
    const auto fillDisk = [&] (double)
    {
        const auto isFull = ++row > 100 && row < 300;
        const auto room = isFull ? static_cast<rlim_t> (file.getSize()) : sizeLimit.rlim_max;
        const rlimit limit { room, sizeLimit.rlim_max };
        return ::setrlimit (RLIMIT_FSIZE, &limit) == 0;
    };

    const auto written = writeReport (file, 700, fillDisk);
    ::setrlimit (RLIMIT_FSIZE, &sizeLimit);
    std::signal (SIGXFSZ, oldHandler);
    EXPECT_EQ (written, writeReport (file, 1));
}

//==============================================================================
/** Rows before the end of the section are updated; the rest keep their values. */
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
        column.update (getBlock (one), msPerTick);
        EXPECT_EQ (column.getText (1) + "|" + column.getText (16) + "|" + column.getText (21), expected) << size;
    }
}

/** Two threads read at once, one of them again, while the section is truncated. */
TEST (AccessGuardTests, vanishingSectionsEndReadingsOnAnyThread)
{
    constexpr int rounds = 20;

    for (int round = 0; round < rounds; ++round)
    {
        OneDevice one;
        one.device->open();
        const auto* block = getBlock (one);
        ASSERT_TRUE (canRead (block));

        std::barrier together (2);
        const auto canReadWhileItIsCut = [&] (bool cuts)
        {
            return canRead (block,
                            [&]
                            {
                                together.arrive_and_wait();

                                if (cuts)
                                    one.driver.cutSection();

                                together.arrive_and_wait();
                            });
        };

        auto other = std::async (std::launch::async, canReadWhileItIsCut, false);
        EXPECT_FALSE (canReadWhileItIsCut (true));
        EXPECT_FALSE (other.get());
        EXPECT_FALSE (canRead (block));
    }
}

} // namespace
