#include "device/DeviceChangeMessage.h"
#include "protocol/StatisticsBlock.h"
#include "stats/Content.h"
#include "stats/Explanations.h"
#include "tests/unit/support/Devices.h"

#include <gtest/gtest.h>
#include <span>

namespace
{

constexpr std::size_t playbackCountRow = 1;
constexpr auto fifoLevelRow = StatisticsLayout::findRow (RowKind::fifoLevel, DriverProtocol::fifoLevelWord);
constexpr auto overflowRow = fifoLevelRow + 1;

/** A view on some devices; "d0", the first in the machine, is the last in the view. */
struct ContentTests : public testing::Test
{
    TestMachine machine;
    std::vector<std::unique_ptr<TestDriver>> drivers;
    std::unique_ptr<DeviceList> devices;
    std::unique_ptr<Content> content;

    /** The first driver's playback count is 111, the second's 222, and so on. */
    TestDriver& addDriver()
    {
        const auto name = "d" + std::to_string (drivers.size());
        auto& driver =
            *drivers.emplace_back (std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name }));
        StatisticsBlock block {};
        block.playbackBufferCount = 111 * static_cast<int> (drivers.size());
        driver.setStatistics (block);
        driver.streamStatusWords = { 0, 0, 44100, 0, 512, 0, 0, 0, 0 };
        return driver;
    }

    void makeContent (int numDevices)
    {
        for (int i = 0; i < numDevices; ++i)
            addDriver();

        devices = std::make_unique<DeviceList>();
        content = std::make_unique<Content> (*devices);
    }

    TestDriver& newest() { return *drivers.back(); }

    template <typename Type>
    std::vector<Type*> find() const
    {
        std::vector<Type*> found;

        for (auto* child : content->getChildren())
            if (auto* wanted = dynamic_cast<Type*> (child))
                found.push_back (wanted);

        return found;
    }

    /** Texts of some labels: the three of the status come first, then those of the rows. */
    juce::String labels (std::size_t first, std::size_t number) const
    {
        const auto all = find<juce::Label>();
        return join (std::span (all).subspan (first, number), "|", [] (auto* label) { return label->getText(); });
    }

    juce::String status() const { return labels (0, 3); }

    /** The figures that the columns show in one row. */
    juce::String figures (std::size_t row) const
    {
        return join (find<Column>(), "|", [row] (auto* column) { return column->getText (row); });
    }
};

TEST_F (ContentTests, everyFigureHasItsLabelBesideIt)
{
    makeContent (3);
    EXPECT_EQ (labels (3, 23),
               "Playback|Buffer count|Maximum time|Average time|Record|Buffer count|Maximum time|Average time|"
               "ASIO wakeup|Maximum time|Average time|ASIO host|Maximum time|Average time|"
               "Buffer offset|Maximum time|Minimum time|Average time|"
               "Firmware|FIFO level|Overflow|Underrun|Sync count");

    EXPECT_EQ (join (find<juce::TextButton>(), "|", &juce::Button::getButtonText), "Save|Reset|Events");

    const auto* newestColumn = find<Column>().at (0);
    const auto lastLabel = find<juce::Label>().at (25)->getBounds();
    const auto lastBox = newestColumn->getBox (overflowRow + 2) + newestColumn->getPosition();
    EXPECT_EQ (lastLabel.getCentreY(), lastBox.getCentreY());
    EXPECT_LT (lastLabel.getRight(), lastBox.getX());
    EXPECT_EQ (find<Column>().at (2)->getX(), newestColumn->getX() + 2 * newestColumn->getWidth());
}

TEST_F (ContentTests, paintsItsFrameAndCaptions)
{
    makeContent (2);
    const auto picture = content->createComponentSnapshot (content->getLocalBounds());
    const auto isInked = [&] (juce::Rectangle<int> area)
    {
        for (int y = area.getY(); y < area.getBottom(); ++y)
            for (int x = area.getX(); x < area.getRight(); ++x)
                if (picture.getPixelAt (x, y).getBrightness() > 0.8f)
                    return true;

        return false;
    };

    // The captions end where the status begins.
    for (int i = 0; i < 3; ++i)
    {
        const int y = 22 + 18 * i;
        EXPECT_TRUE (isInked ({ 58, y, 112, 14 })) << y;
        EXPECT_EQ (find<juce::Label>().at (static_cast<std::size_t> (i))->getY(), y);
    }

    EXPECT_FALSE (isInked ({ 1, 1, 56, 86 }));
    EXPECT_TRUE (isInked ({ 0, 0, 1, 1 }));
    EXPECT_TRUE (isInked ({ 489, 651, 1, 1 }));
}

TEST_F (ContentTests, streamStatusFollowsTheNewestDevice)
{
    makeContent (2);
    EXPECT_EQ (content->getTimerInterval(), 250);
    EXPECT_EQ (status(), "44100 Hz|512 samples|11.610 msec");

    newest().streamStatusWords[DriverProtocol::sampleRateWord] = 48000;
    drivers.front()->streamStatusWords[DriverProtocol::sampleRateWord] = 96000;
    content->timerCallback();
    EXPECT_EQ (status(), "48000 Hz|512 samples|10.667 msec");

    newest().fail (TestDriver::streamStatus);
    newest().streamStatusWords = {};
    content->timerCallback();
    EXPECT_EQ (status(), "48000 Hz|512 samples|10.667 msec");

    newest().setOverride ({});
    content->timerCallback();
    EXPECT_EQ (status(), "0 Hz|0 samples|unknown");
}

/** The element of that name among all that the toolkit hands to a screen reader; null when there is none. */
const juce::AccessibilityHandler* findByTitle (const juce::AccessibilityHandler& handler, const juce::String& title)
{
    if (handler.getTitle() == title)
        return &handler;

    for (const auto* child : handler.getChildren())
        if (const auto* found = findByTitle (*child, title))
            return found;

    return nullptr;
}

/** A screen reader's help text is the tip that pointing shows. */
TEST_F (ContentTests, figuresAreReadAloudAndJudgedByTheBufferTime)
{
    makeContent (1);
    content->addToDesktop (0);
    content->setVisible (true);
    const auto* list = findByTitle (*content->getAccessibilityHandler(), "d0");
    ASSERT_NE (list, nullptr);
    EXPECT_EQ (list->getRole(), juce::AccessibilityRole::list);
    EXPECT_EQ (list->getChildren().size(), StatisticsLayout::valueRows.size() + 1);

    const auto* item = findByTitle (*list, "Playback: Maximum time");
    ASSERT_NE (item, nullptr);
    const auto* name = findByTitle (*list, "Interface");
    ASSERT_NE (name, nullptr);

    // The buffer time is 11.61 ms.
    StatisticsBlock block {};
    LARGE_INTEGER frequency {};
    QueryPerformanceFrequency (&frequency);
    block.playbackMaximum = 24 * frequency.QuadPart / 1000;
    newest().setStatistics (block);
    content->timerCallback();
    EXPECT_EQ (item->getValueInterface()->getCurrentValueAsString(), "24.000 msec");
    EXPECT_EQ (item->getHelp(), "24.0 ms is more than twice the buffer time: a buffer came late.");

    newest().streamStatusWords = {};
    content->timerCallback();
    const auto& row =
        Explanations::get (StatisticsLayout::findRow (RowKind::time, offsetof (StatisticsBlock, playbackMaximum)));
    EXPECT_EQ (item->getHelp(), row.text) << "nobody knows the buffer time";

    EXPECT_EQ (name->getHelp(), "d0\nVendor 000000, type 0\nARM code 0.0");
    newest().fail (TestDriver::readCounters);
    content->timerCallback();
    EXPECT_TRUE (name->getHelp().contains ("\nNo answer since ")) << name->getHelp();
    newest().setOverride ({});
    content->timerCallback();
    EXPECT_FALSE (name->getHelp().contains ("No answer"));
}

TEST_F (ContentTests, theReadmeExplainsEveryFigureAsTheProgramDoes)
{
    const auto readme = juce::File (QUENDEL_ROOT "README.md").loadFileAsString();
    juce::String group;

    for (std::size_t row = 0; row < StatisticsLayout::numRows; ++row)
    {
        const auto& [kind, label, source, reportLabel] = StatisticsLayout::rows[row];

        if (kind == RowKind::header)
            group = label;
        else if (kind != RowKind::blank)
        {
            const auto line = readme.fromFirstOccurrenceOf ("| " + group + ": " + label + " |", false, false);
            EXPECT_TRUE (line.upToFirstOccurrenceOf ("\n", false, false)
                             .endsWith (juce::String ("| ") + Explanations::get (row).text + " |"))
                << group << ": " << label;
        }
    }
}

TEST_F (ContentTests, whatSaveWouldAppendIsCopied)
{
    makeContent (1);
    EXPECT_TRUE (content->keyPressed ({ 'c', juce::ModifierKeys::ctrlModifier, 0 }));
    const auto copied = juce::SystemClipboard::getTextFromClipboard();
    EXPECT_TRUE (copied.startsWith ("--------")) << copied;
    EXPECT_TRUE (copied.contains ("d0\r\nARM code: 0.0\r\n")) << copied;
}

/** A change is followed at once. Changes that come before the message loop has had a turn share the next rebuild. */
TEST_F (ContentTests, changesOfAStormLeaveRoomForInput)
{
    makeContent (1);
    newest().forgetRecords();
    const DeviceChangeMessage change (DeviceArrivedMessage, nullptr);

    for (int i = 0; i < 3; ++i)
    {
        content->handleMessage (change);
        EXPECT_EQ (newest().count (TestDriver::mapStatistics), 1);
    }

    ASSERT_TRUE (runMessagesUntil ([&] { return newest().count (TestDriver::mapStatistics) == 2; }));
    content->timerCallback();
    EXPECT_EQ (newest().count (TestDriver::mapStatistics), 2);
}

/** A device that fails or dies keeps its figures; those of the others move on. */
TEST_F (ContentTests, failingAndDeadDriversLeaveTheirFigures)
{
    makeContent (2);
    drivers[0]->counterWords = { 5, 6, 0, 0, 512, 0, 7 };
    content->timerCallback();
    drivers[0]->fail (TestDriver::readCounters);
    content->timerCallback();
    EXPECT_EQ (figures (overflowRow), "0|5");

    drivers[0]->kill();
    newest().counterWords = { 8 };
    content->timerCallback();

    EXPECT_EQ (figures (playbackCountRow), "222|111");
    EXPECT_EQ (figures (fifoLevelRow), "0 %|50 %");
    EXPECT_EQ (figures (overflowRow), "8|5");
}

} // namespace
