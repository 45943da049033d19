#include "events/EventReport.h"

#include "posix/FileDescriptor.h"
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
    juce::Array<EventRecord> rows;
    rows.insertMultiple (0, EventRecord(), count);
    return rows;
}

/** A report of so many rows. */
juce::String makeReport (int count)
{
    const juce::TemporaryFile temporary ("report.txt");
    EventReport::write (temporary.getFile(), makeRows (count), names, [] (double) { return true; });
    return temporary.getFile().loadFileAsString();
}

/** This name of a file can be opened and not deleted, whoever tries. */
TEST (FullDiskTests, earlierReportThatCannotBeDeletedLosesItsLines)
{
    const auto whole = makeReport (2);
    const FileDescriptor memory (::memfd_create ("report", MFD_CLOEXEC));
    const juce::File undeletable ("/proc/self/fd/" + juce::String (memory.get()));
    undeletable.appendText ("an earlier report that was longer, " + whole);
    EventReport::write (undeletable, makeRows (2), names, [] (double) { return true; });
    EXPECT_EQ (undeletable.loadFileAsString(), whole);
}

/** What is in the file is the report's beginning, also when there is room again after a while. */
TEST (FullDiskTests, nothingFollowsLinesThatAreMissing)
{
    const juce::TemporaryFile temporary ("report.txt");
    const auto& file = temporary.getFile();
    const auto oldHandler = std::signal (SIGXFSZ, SIG_IGN);
    rlimit sizeLimit {};
    ::getrlimit (RLIMIT_FSIZE, &sizeLimit);
    int row = 0;

    EventReport::write (file,
                        makeRows (700),
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
    EXPECT_EQ (file.loadFileAsString(), makeReport (1));
}

} // namespace
