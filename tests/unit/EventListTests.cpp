#include "device/DeviceList.h"
#include "events/EventDisplayWindow.h"
#include "events/EventDisplayWindowContent.h"
#include "events/EventList.h"
#include "events/EventNames.h"
#include "tests/unit/support/TestDriver.h"

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
    TestDriver deck { machine, { .name = "a", .uniqueName = std::string ("Deck\0", 5) } };
    TestDriver two { machine, { .name = "b", .uniqueName = std::string ("Two\0", 4) } };
    DeviceList list;
    const std::vector<HwDevice::Ptr> devices = list.getDevices();
    static constexpr int deckIndex = 1;

    void SetUp() override
    {
        for (const auto& device : devices)
            device->open();
    }

    static juce::String describeHeader (EventList&& events)
    {
        auto& header = events.getHeader();
        juce::StringArray columns;

        for (int i = 0; i < header.getNumColumns (false); ++i)
        {
            const int id = header.getColumnIdOfIndex (i, false);
            EXPECT_EQ (id, i + 1);
            columns.add (header.getColumnName (id) + " " + juce::String (header.getColumnWidth (id)));
        }

        return columns.joinIntoString (",");
    }

    juce::String cells (EventList& events, int columnId)
    {
        juce::StringArray texts;

        for (int row = 0; row < events.getNumRows(); ++row)
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
        [] (TestDriver::Kind kind, int number) -> std::optional<Reply>
        {
            if (kind != TestDriver::eventEntry || number != 5)
                return {};

            return Reply::failure (1);
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

    EXPECT_EQ (events.getCellText (0, EventList::indexColumn), "0(-1)");
    EXPECT_EQ (events.getCellText (0, EventList::timeColumn), "1000.000");
    EXPECT_EQ (events.getCellText (0, EventList::deltaColumn), "0");
    EXPECT_EQ (events.getCellText (0, EventList::lastSimilarDeltaColumn), "");
    EXPECT_EQ (events.getCellText (0, EventList::paramColumn), "Deck:ffffffff");
    EXPECT_EQ (events.getCellText (0, EventList::nameColumn), "Listen complete");
    EXPECT_EQ (events.getCellText (0, 7), "");
    EXPECT_EQ (events.getCellText (99, EventList::paramColumn), "Deck:0") << "a row outside reads as zeros";

    EXPECT_EQ (EventNames::get (23), "Debug counts");
    EXPECT_EQ (EventNames::get (24), "Unknown event 24");
    EXPECT_EQ (EventNames::get (-1), "Unknown event -1");
}

TEST_F (EventListTests, headersSortByTheirKeyAndAlwaysUpwards)
{
    EXPECT_EQ (describeHeader (EventList (devices, deckIndex)),
               "Index 100,Msec 100,Time Delta 100,Last Similar Delta 100,Param 150,Event Name 200");

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

/** Sorting must stay within a strict weak order, and arithmetic and texts within what is defined. */
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

    for (const int column : { EventList::nameColumn, EventList::deltaColumn, EventList::timeColumn })
    {
        events.sortOrderChanged (column, true);

        for (int row = 0; row < 500; ++row)
        {
            const auto record = events.getEvents()[row], before = events.getEvents()[juce::jmax (0, row - 1)];
            EXPECT_TRUE (column == EventList::nameColumn    ? before.type <= record.type
                         : column == EventList::deltaColumn ? before.timeDelta <= record.timeDelta
                                                            : before.timestamp <= record.timestamp);

            const auto time = events.getCellText (row, EventList::timeColumn);
            EXPECT_EQ (time == "?", record.frequency == 0);
            EXPECT_FALSE (time.containsAnyOf ("nfa")) << time;
        }
    }
}

TEST_F (EventListTests, rowsAreColouredBySelectionAndType)
{
    deck.events = { makeEntry (0, 2), makeEntry (1, 3) };
    EventList events (devices, deckIndex);
    const auto colourOf = [&] (int row, bool selected)
    {
        juce::Image image (juce::Image::ARGB, 10, 10, true);
        juce::Graphics g (image);
        events.paintRowBackground (g, row, 10, 10, selected);
        return image.getPixelAt (9, 9).getARGB();
    };

    EXPECT_EQ (colourOf (0, false), 0xffffc0cb);
    EXPECT_EQ (colourOf (0, true), 0xffadd8e6);
    EXPECT_EQ (colourOf (1, false), 0xffffffff);
}

//==============================================================================
TEST_F (EventListTests, tabsNameEveryDevice)
{
    const TestDriver nameless (machine, { .name = "c", .uniqueName = std::string (1, '\0') });
    const DeviceList withNameless;
    EventTabs tabs (withNameless);
    EXPECT_EQ (tabs.getTabNames().joinIntoString (","), "Unnamed device,Two,Deck,Aggregate");
    EXPECT_EQ (tabs.getTabBackgroundColour (3), juce::Colours::cyan);
    EXPECT_EQ (tabs.getTabBackgroundColour (0), juce::Colours::white);

    list.removeByPath (TestMachine::getInterfacePath ("b"));
    EXPECT_EQ (EventTabs (list).getTabNames().joinIntoString (","), "Deck");
    list.removeByPath (TestMachine::getInterfacePath ("a"));
    EXPECT_EQ (EventTabs (list).getNumTabs(), 0);
}

TEST_F (EventListTests, eachLogIsReadOnceMoreForTheAggregate)
{
    deck.events = makeLog (7);
    two.events = makeLog (2);
    EventDisplayWindowContent content (list);

    EXPECT_EQ (deck.count (TestDriver::eventEntry), 2 * 8);
    EXPECT_EQ (two.count (TestDriver::eventEntry), 2 * 3);
    EXPECT_EQ (content.getBounds(), juce::Rectangle<int> (800, 600));
    EXPECT_EQ (content.getChildComponent (0)->getBounds(), juce::Rectangle<int> (800, 554));
    EXPECT_EQ (content.getChildComponent (1)->getBounds(), juce::Rectangle<int> (355, 564, 90, 26));
}

//==============================================================================
/** The window on the screen, as a click opens it. */
struct EventWindowTests : public EventListTests
{
    std::unique_ptr<EventDisplayWindow> window;

    void SetUp() override
    {
        EventListTests::SetUp();
        deck.events = two.events = { makeEntry (30, 1), makeEntry (10, 3), makeEntry (20, 2) };
        window = std::make_unique<EventDisplayWindow> (list);
        window->enterModalState (true);
        ASSERT_TRUE (runMessagesUntil ([] { return getFocused<EventList>() != nullptr; }));
    }

    template <typename Type>
    static Type* getFocused()
    {
        return dynamic_cast<Type*> (juce::Component::getCurrentlyFocusedComponent());
    }

    /** Cancels the dialog that opens before the window. */
    struct DialogCloser : public juce::Timer
    {
        DialogCloser() { startTimer (10); }

        void timerCallback() override
        {
            if (juce::ModalComponentManager::getInstance()->getNumModalComponents() < 2)
                return;

            hasClosed = true;
            stopTimer();
            juce::Component::getCurrentlyModalComponent()->exitModalState (0);
        }

        bool hasClosed = false;
    };

    /** A key on its way to whoever has the focus. */
    void press (int key, int modifiers = 0) const
    {
        window->getPeer()->handleKeyPress (
            { key, juce::ModifierKeys (modifiers), static_cast<juce::juce_wchar> (key) });
    }
};

TEST_F (EventWindowTests, everythingHasItsKey)
{
    using juce::KeyPress;
    constexpr auto ctrl = juce::ModifierKeys::ctrlModifier, shift = juce::ModifierKeys::shiftModifier;
    const auto& tabs = *getFocused<EventList>()->findParentComponentOfClass<EventTabs>();

    // "Two", "Deck", "Aggregate", and round again.
    for (const auto& [key, modifiers, tab] : { std::tuple { KeyPress::pageUpKey, ctrl + 0, 2 },
                                               { KeyPress::pageDownKey, ctrl, 0 },
                                               { KeyPress::tabKey, ctrl, 1 },
                                               { KeyPress::tabKey, ctrl + shift, 0 } })
    {
        press (key, modifiers);
        EXPECT_EQ (tabs.getCurrentTabIndex(), tab);
        EXPECT_EQ (getFocused<EventList>(), tabs.getCurrentList());
    }

    press (KeyPress::downKey);
    press (KeyPress::downKey);
    EXPECT_EQ (tabs.getCurrentList()->getSelectedRow(), 1);

    press ('6');
    ASSERT_TRUE (runMessagesUntil ([&] { return tabs.getCurrentList()->getEvents()[0].type == 1; }));

    press (KeyPress::tabKey);
    ASSERT_NE (getFocused<juce::TextButton>(), nullptr);
    EXPECT_EQ (getFocused<juce::TextButton>()->getButtonText(), "Save report");
    const DialogCloser closer;
    press (KeyPress::spaceKey);
    EXPECT_TRUE (runMessagesUntil ([&] { return closer.hasClosed && getFocused<juce::TextButton>() != nullptr; }));
    press (KeyPress::tabKey, shift);
    EXPECT_EQ (getFocused<EventList>(), tabs.getCurrentList());

    press (KeyPress::escapeKey);
    EXPECT_FALSE (window->isCurrentlyModal());
}

TEST_F (EventWindowTests, closingIsRefusedBehindADialog)
{
    juce::AlertWindow dialog ("dialog", {}, juce::MessageBoxIconType::NoIcon);
    dialog.enterModalState();
    window->getPeer()->handleUserClosingWindow();
    dialog.exitModalState (0);
    ASSERT_TRUE (runMessagesUntil ([&] { return ! dialog.isCurrentlyModal (false); }));
    EXPECT_TRUE (window->isCurrentlyModal());

    window->getPeer()->handleUserClosingWindow();
    EXPECT_FALSE (window->isCurrentlyModal());
}

} // namespace
