#include "events/EventList.h"
#include "events/EventReport.h"
#include "events/SaveReportTask.h"

#include "tests/unit/support/Toolkit.h"
#include <gtest/gtest.h>
#include <random>

namespace
{

EventRecord makeRecord (std::int64_t timestamp, std::int64_t delta, std::int32_t type, std::uint32_t param)
{
    return { timestamp, 10000000, delta, type, param };
}

const juce::StringArray deck { "Deck" };

struct EventReportTests : public testing::Test
{
    const juce::TemporaryFile temporary { "report.txt" };
    const juce::File file = temporary.getFile();

    juce::String write (const juce::Array<EventRecord>& events, const juce::StringArray& names = deck) const
    {
        EventReport::write (file, events, names, [] (double) { return true; });
        return file.loadFileAsString();
    }
};

juce::Array<EventRecord> makeRows (int count)
{
    juce::Array<EventRecord> rows;

    for (int i = 0; i < count; ++i)
        rows.add (makeRecord (1000000 + i * std::int64_t { 12346 },
                              i == 0 ? 0 : 12346,
                              i % 26,
                              static_cast<std::uint32_t> (i)));

    return rows;
}

TEST_F (EventReportTests, linesHoldTheirFiveFields)
{
    const auto first = makeRecord (1000000, 0, 0, 0);
    auto timeless = first, elsewhere = first;
    timeless.frequency = 0;
    elsewhere.deviceOrdinal = 200;

    const auto secondLine = [&] (const EventRecord& event, const juce::StringArray& names) {
        return juce::StringArray::fromLines (write ({ first, event }, names))[1];
    };

    for (const auto& [event, expected] :
         { std::pair { makeRecord (1010000, 2500, 17, 7), "000001,1.000,250,Deck:7,Clock adjust" },
           std::pair { makeRecord (1010000, 2500, 17, 0xFFFFFFFF), "000001,1.000,250,,Clock adjust" },
           std::pair { makeRecord (0, 0, 24, 0x80000000), "000001,-100.000,0,Deck:-2147483648,Unknown event 24" },
           std::pair { timeless, "000001,?,?,Deck:0,Listen attach" },
           std::pair { elsewhere, "000001,0.000,0,:0,Listen attach" },

           // A number halfway between two is rounded to the even one, with every C library.
           std::pair { makeRecord (1012345, 12345, 2, 1), "000001,1.234,1234,Deck:1,Listen complete" },
           std::pair { makeRecord (999999, -5, 2, 1), "000001,-0.000,-0,Deck:1,Listen complete" } })
        EXPECT_EQ (secondLine (event, deck), expected);

    // The report shows the ordinal as unsigned, the table as signed.
    juce::StringArray many;

    for (int i = 0; i <= 200; ++i)
        many.add ("d" + juce::String (i));

    EXPECT_EQ (secondLine (elsewhere, many), "000001,0.000,0,d200:0,Listen attach");

    const auto extreme = secondLine (makeRecord (INT64_MIN, INT64_MIN, INT32_MIN, 0), deck);
    EXPECT_TRUE (extreme.endsWith (",Deck:0,Unknown event -2147483648")) << extreme;
}

TEST_F (EventReportTests, stoppingLeavesTheLinesBefore)
{
    const auto rows = makeRows (700);
    const auto whole = write (rows);

    for (const int stop : { 0, 1, 256, 257, 300, 699 })
    {
        int row = 0;
        EventReport::write (file,
                            rows,
                            deck,
                            [&] (double share)
                            {
                                EXPECT_DOUBLE_EQ (share, row / 700.0);
                                return row++ < stop;
                            });

        const auto text = file.loadFileAsString();
        EXPECT_TRUE (whole.startsWith (text));
        EXPECT_EQ (text.length() - text.removeCharacters ("\n").length(), stop);
    }
}

TEST_F (EventReportTests, fileThatCannotBeWrittenIsNoMatter)
{
    const auto kept = file.getChildFile ("kept");
    ASSERT_TRUE (kept.create().wasOk());
    EventReport::write (file, makeRows (2), deck, [] (double) { return true; });
    EXPECT_TRUE (kept.existsAsFile());
    file.deleteRecursively();
}

//==============================================================================
/** The task with its window. */
struct SaveReportTaskTests : public EventReportTests
{
    /** Runs the task, and an action some time after its start. */
    juce::String runAndDo (const juce::Array<EventRecord>& rows, int delayMs, const std::function<void()>& action) const
    {
        juce::Timer::callAfterDelay (delayMs, action);
        SaveReportTask (file, rows, deck).runModally();
        return file.loadFileAsString();
    }
};

TEST_F (SaveReportTaskTests, cancelAtAnyMomentLeavesWholeLines)
{
    // Far more rows than are written before the window's timer notices the click.
    const auto rows = makeRows (500000);
    const auto whole = write (rows);
    std::mt19937 random (7);
    int cut = 0;

    for (int i = 0; i < 60; ++i)
    {
        const auto text = runAndDo (
            rows,
            static_cast<int> (random() % 40),
            []
            {
                if (auto* window = dynamic_cast<juce::AlertWindow*> (juce::Component::getCurrentlyModalComponent()))
                    window->triggerButtonClick ("Cancel");
            });
        ASSERT_TRUE (whole.startsWith (text)) << i;
        ASSERT_TRUE (text.isEmpty() || text.endsWith ("\r\n")) << i;
        cut += text.length() < whole.length() ? 1 : 0;
    }

    EXPECT_GT (cut, 0) << "no cancel came in time";
}

TEST_F (SaveReportTaskTests, returnDoesNotCancel)
{
    const auto rows = makeRows (500000);
    const auto text = runAndDo (rows,
                                0,
                                []
                                {
                                    if (auto* window = juce::Component::getCurrentlyModalComponent())
                                        window->getPeer()->handleKeyPress (juce::KeyPress (juce::KeyPress::returnKey));
                                });
    EXPECT_EQ (text.length(), write (rows).length());
}

/** A quit ends the task in order; it must not wait for a message loop that has stopped. */
TEST_F (SaveReportTaskTests, quitEndsTheTask)
{
    const auto text = runAndDo (makeRows (200000), 30, [] { juce::MessageManager::getInstance()->stopDispatchLoop(); });
    EXPECT_TRUE (text.isEmpty() || text.endsWith ("\r\n"));
    restartToolkit();
}

} // namespace
