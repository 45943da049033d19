#include "events/EventList.h"
#include "events/EventNames.h"
#include "events/EventTabs.h"
#include "tests/unit/support/Devices.h"

#include <gtest/gtest.h>
#include <random>

using DriverProtocol::EventLogEntry;
using Reply = TestDriver::Reply;

namespace
{

EventLogEntry makeEntry (std::int64_t timestamp, std::int32_t type = 17, std::uint32_t param = 0x1A)
{
    EventLogEntry entry {};
    entry.timestamp = timestamp;
    entry.frequency = 10000;
    entry.type = static_cast<std::uint32_t> (type);
    entry.param = param;
    return entry;
}

std::vector<EventLogEntry> makeLog (std::size_t length)
{
    std::vector<EventLogEntry> log;

    for (std::size_t i = 0; i < length; ++i)
        log.push_back (makeEntry (static_cast<std::int64_t> (i * 10)));

    return log;
}

/** Two open devices, "Deck" (position 1) and "Two" (position 0). */
struct EventListTests : public testing::Test
{
    TestMachine machine;
    TestDriver deck { machine, { .name = "Deck" } }, two { machine, { .name = "Two" } };
    OpenList list;
    const std::vector<HwDevice::Ptr> devices = list.getDevices();
    static constexpr int deckIndex = 1;

    static juce::String cells (const EventList& events, int columnId)
    {
        juce::StringArray texts;

        for (int row = 0; row < events.getEvents().size(); ++row)
            texts.add (events.getCellText (row, columnId));

        return texts.joinIntoString (" ");
    }
};

TEST_F (EventListTests, readsUntilTheTerminatorTheLimitOrAFailure)
{
    const auto readDeck = [&] (std::vector<EventLogEntry> log)
    {
        deck.forgetRecords();
        deck.events = std::move (log);
        const EventList events (devices, deckIndex);
        EXPECT_EQ (events.getDeviceNames().joinIntoString (","), "Deck");
        return std::pair { events.getEvents().size(), deck.count (TestDriver::eventEntry) };
    };

    EXPECT_EQ (readDeck ({}), (std::pair { 0, 1 }));
    EXPECT_EQ (readDeck (makeLog (3)), (std::pair { 3, 4 }));
    EXPECT_EQ (readDeck ({ makeEntry (1), makeEntry (2, -1), makeEntry (3) }), (std::pair { 1, 2 }));
    EXPECT_EQ (readDeck (makeLog (16384)), (std::pair { 16384, 16384 }));
    EXPECT_EQ (readDeck (makeLog (16400)), (std::pair { 16384, 16384 }));

    deck.setOverride (
        [] (TestDriver::Kind kind, int number)
        {
            const bool fails = kind == TestDriver::eventEntry && number == 5;
            return fails ? std::optional (Reply::failure (1)) : std::nullopt;
        });

    EXPECT_EQ (readDeck (makeLog (10)), (std::pair { 5, 6 }));

    deck.setOverride ({});
    deck.kill();
    EXPECT_EQ (readDeck (makeLog (10)), (std::pair { 0, 0 }));
}

TEST_F (EventListTests, ordersByTimeAndMeasuresTheGapsOfThatOrder)
{
    deck.events = { makeEntry (300), makeEntry (100), makeEntry (101) };
    EventList one (devices, deckIndex);
    EXPECT_EQ (cells (one, EventList::deltaColumn), "0 100 19900");

    two.events = { makeEntry (200), makeEntry (50) };
    EventList all (devices, -1);
    EXPECT_EQ (all.getDeviceNames().joinIntoString (","), "Two,Deck");
    EXPECT_EQ (cells (all, EventList::timeColumn), "5.000 10.000 10.100 20.000 30.000");
    EXPECT_EQ (cells (all, EventList::paramColumn), "Two:1a Deck:1a Deck:1a Two:1a Deck:1a");
    EXPECT_EQ (cells (all, EventList::deltaColumn), "0 5000 100 9900 10000");
}

TEST_F (EventListTests, cellsShowTheirRecord)
{
    auto entry = makeEntry (10000, 2, 0xFFFFFFFF);
    entry.auxValue = -1;
    deck.events = { entry };
    EventList events (devices, deckIndex);

    const auto row = [&] (int number)
    {
        juce::StringArray texts;

        for (int column = EventList::indexColumn; column <= EventList::nameColumn + 1; ++column)
            texts.add (events.getCellText (number, column));

        return texts.joinIntoString ("|");
    };

    EXPECT_EQ (row (0), "0(-1)|1000.000|0||Deck:ffffffff|Listen complete|");
    EXPECT_EQ (row (99), "99(0)|?|?||Deck:0|Listen attach|") << "a row outside reads as zeros";
    EXPECT_EQ (EventNames::get (23), "Debug counts");
    EXPECT_EQ (EventNames::get (24), "Unknown event 24");
    EXPECT_EQ (EventNames::get (-1), "Unknown event -1");
}

TEST_F (EventListTests, rowsHaveTheirColoursAndEveryCellItsText)
{
    deck.events = { makeEntry (10000, 2, 3), makeEntry (10001, 3) };
    EventList events (devices, deckIndex);
    const auto look = [&] (int row, bool selected, int column)
    {
        juce::Image image (juce::Image::ARGB, 100, 20, true);
        juce::Graphics g (image);
        events.paintRowBackground (g, row, 100, 20, selected);
        const auto background = image.getPixelAt (99, 19);
        events.paintCell (g, row, column, 100, 20, selected);
        bool hasText = false;

        for (int i = 0; i < 2000; ++i)
            hasText = hasText || image.getPixelAt (i % 100, i / 100) != background;

        EXPECT_EQ (hasText, events.getCellText (row, column).isNotEmpty()) << column;
        return background.getARGB();
    };

    for (int column = EventList::indexColumn; column <= EventList::nameColumn; ++column)
        EXPECT_EQ (look (0, false, column), 0xffffc0cb);

    EXPECT_EQ (look (0, true, EventList::timeColumn), 0xffadd8e6);
    EXPECT_EQ (look (1, false, EventList::timeColumn), 0xffffffff);

    // Below its last row the table is white, too.
    events.setSize (800, 500);
    EXPECT_EQ (events.createComponentSnapshot (events.getLocalBounds()).getPixelAt (400, 400), juce::Colours::white);
}

TEST_F (EventListTests, headersSortByTheirKeyAndAlwaysUpwards)
{
    deck.events = { makeEntry (0, 5), makeEntry (100, 1), makeEntry (110, 9), makeEntry (300, 3) };
    EventList events (devices, deckIndex);
    const auto sort = [&] (int column, bool forwards)
    {
        events.sortOrderChanged (column, forwards);
        return cells (events, EventList::timeColumn);
    };

    EXPECT_EQ (sort (EventList::nameColumn, true), "10.000 30.000 0.000 11.000");
    EXPECT_EQ (sort (EventList::nameColumn, false), "10.000 30.000 0.000 11.000");
    EXPECT_EQ (sort (EventList::paramColumn, true), "10.000 30.000 0.000 11.000");
    EXPECT_EQ (sort (EventList::deltaColumn, true), "0.000 11.000 10.000 30.000");
    EXPECT_EQ (cells (events, EventList::indexColumn), "0(0) 1(0) 2(0) 3(0)");
    EXPECT_EQ (sort (EventList::timeColumn, true), "0.000 10.000 11.000 30.000");
}

/** Sorting keeps a strict weak ordering, arithmetic stays defined, and texts stay finite. */
TEST_F (EventListTests, hostileLogsAreSortedAndShownAllTheSame)
{
    constexpr std::int64_t extremes[] { INT64_MIN, INT64_MIN + 1, -1, 0, 1, INT64_MAX - 1, INT64_MAX };
    constexpr std::int32_t types[] { INT32_MIN, INT32_MIN + 1, -2, 0, 2, 23, 24, INT32_MAX };
    std::mt19937 random (1);
    const auto pick = [&] (const auto& values) { return values[random() % std::size (values)]; };

    for (int i = 0; i < 500; ++i)
    {
        auto entry = makeEntry (pick (extremes), pick (types), static_cast<std::uint32_t> (random()));
        entry.frequency = pick (extremes);
        entry.auxValue = random() % 2 == 0 ? INT8_MIN : INT8_MAX;
        deck.events.push_back (entry);
    }

    EventList events (devices, deckIndex);
    ASSERT_EQ (events.getNumRows(), 500);
    const auto expectOrder = [&] (int column, auto field)
    {
        events.sortOrderChanged (column, true);
        EXPECT_TRUE (std::ranges::is_sorted (events.getEvents(), {}, field)) << column;
    };

    expectOrder (EventList::nameColumn, &EventRecord::type);
    expectOrder (EventList::deltaColumn, &EventRecord::timeDelta);
    expectOrder (EventList::timeColumn, &EventRecord::timestamp);

    for (int row = 0; row < 500; ++row)
    {
        const auto time = events.getCellText (row, EventList::timeColumn);
        EXPECT_EQ (time == "?", events.getEvents()[row].frequency == 0);
        EXPECT_FALSE (time.containsAnyOf ("nfa")) << time;
    }
}

//==============================================================================
TEST_F (EventListTests, tabsNameEveryDevice)
{
    const TestDriver nameless (machine, { .name = "c", .uniqueName = std::string (1, '\0') });
    EXPECT_EQ (EventTabs (OpenList()).getTabNames().joinIntoString (","), "Unnamed device,Two,Deck,Aggregate");

    EXPECT_EQ (deck.count (TestDriver::eventEntry), 2) << "once for its own tab and once for \"Aggregate\"";

    list.removeByPath (TestMachine::getInterfacePath ("Two"));
    EXPECT_EQ (EventTabs (list).getTabNames().joinIntoString (","), "Deck");
    list.removeByPath (TestMachine::getInterfacePath ("Deck"));
    EXPECT_EQ (EventTabs (list).getNumTabs(), 0);
}

TEST_F (EventListTests, theSelectedRowIsCopiedAsTheReportHasIt)
{
    deck.events = { makeEntry (0), makeEntry (10, 17, 7), makeEntry (30) };
    EventList events (devices, deckIndex);
    juce::SystemClipboard::copyTextToClipboard ("nothing");
    events.copySelectedRows();
    EXPECT_EQ (juce::SystemClipboard::getTextFromClipboard(), "nothing");

    events.sortOrderChanged (EventList::deltaColumn, true);
    events.selectRow (2);
    events.copySelectedRows();
    EXPECT_EQ (juce::SystemClipboard::getTextFromClipboard(), "000002,3.000,2000,Deck:26,Clock adjust\r\n");
}

TEST_F (EventListTests, aNameThatIsTooLongForItsTabEndsInDots)
{
    const std::string name (40, 'm');
    const TestDriver longest (machine, { .name = "c", .uniqueName = name + '\0' });
    EventTabs tabs { DeviceList() };
    tabs.setSize (800, 554);
    const auto* tab = tabs.getTabbedButtonBar().getTabButton (0);
    EXPECT_TRUE (tab->getButtonText().endsWith ("m...")) << tab->getButtonText();
    EXPECT_GT (tab->getWidth(), 200);
    EXPECT_EQ (tab->getTitle(), juce::String (name));
    EXPECT_EQ (tabs.getTabbedButtonBar().getTabButton (1)->getButtonText(), "Two");

    // In a narrow window tabs are shorter.
    tabs.setSize (300, 554);
    EXPECT_LT (tab->getWidth(), 200);
    EXPECT_TRUE (tab->getButtonText().endsWith ("m...")) << tab->getButtonText();
}

} // namespace
