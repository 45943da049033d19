#include "events/EventReport.h"

#include "drivers/machine/FileDescriptor.h"
#include <csignal>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

/* Event reports in files that only this system can make so awkward. */

namespace
{

const juce::StringArray names { "Deck" };

juce::Array<EventRecord> makeRows (int count)
{
    EventRecord record;
    record.frequency = 10000000;
    juce::Array<EventRecord> rows;
    rows.insertMultiple (0, record, count);
    return rows;
}

struct FullDiskTests : public testing::Test
{
    const juce::TemporaryFile temporary { "report.txt" };
    const juce::File file = temporary.getFile();

    juce::String write (const juce::Array<EventRecord>& rows) const
    {
        EventReport::write (file, rows, names, [] (double) { return true; });
        return file.loadFileAsString();
    }
};

/** This name of a file can be opened and not deleted, whoever tries. */
TEST_F (FullDiskTests, earlierReportThatCannotBeDeletedLosesItsLines)
{
    const auto whole = write (makeRows (2));
    const Machine::FileDescriptor memory (::memfd_create ("report", MFD_CLOEXEC));
    const juce::File undeletable ("/proc/self/fd/" + juce::String (memory.get()));
    undeletable.appendText ("an earlier report that was longer, " + whole);
    EventReport::write (undeletable, makeRows (2), names, [] (double) { return true; });
    EXPECT_EQ (undeletable.loadFileAsString(), whole);
}

/** What is in the file is the report's beginning, also when there is room again after a while. */
TEST_F (FullDiskTests, nothingFollowsLinesThatAreMissing)
{
    const auto rows = makeRows (700);
    const auto whole = write (rows);
    const auto oldHandler = std::signal (SIGXFSZ, SIG_IGN);
    rlimit sizeLimit {};
    ::getrlimit (RLIMIT_FSIZE, &sizeLimit);
    int row = 0;

    EventReport::write (file,
                        rows,
                        names,
                        [&] (double)
                        {
                            const auto isFull = ++row > 100 && row < 300;
                            const auto room = isFull ? static_cast<rlim_t> (file.getSize()) : sizeLimit.rlim_max;
                            const rlimit limit { room, sizeLimit.rlim_max };
                            ::setrlimit (RLIMIT_FSIZE, &limit);
                            return true;
                        });

    ::setrlimit (RLIMIT_FSIZE, &sizeLimit);
    std::signal (SIGXFSZ, oldHandler);
    EXPECT_EQ (file.loadFileAsString(), whole.upToFirstOccurrenceOf ("\n", true, false));
}

} // namespace
