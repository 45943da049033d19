#include "device/DeviceChangeMessage.h"
#include "device/DeviceList.h"
#include "stats/Content.h"
#include "stats/StatisticsBlock.h"
#include "tests/unit/support/TestDriver.h"

#include <gtest/gtest.h>

namespace
{

constexpr std::size_t playbackCountRow = 1;

/** A view on some devices, "d0" first in the machine and so last in the view. */
struct ContentTests : public testing::Test
{
    TestMachine machine;
    std::vector<std::unique_ptr<TestDriver>> drivers;
    std::unique_ptr<DeviceList> devices;
    std::unique_ptr<Content> content;

    TestDriver& addDriver()
    {
        const auto name = "d" + std::to_string (drivers.size());
        return *drivers.emplace_back (
            std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name, .uniqueName = name + '\0' }));
    }

    void makeContent (int numDevices)
    {
        content.reset();
        devices.reset();
        drivers.clear();

        for (int i = 0; i < numDevices; ++i)
            addDriver().streamStatusWords = { 0, 0, 44100, 0, 512, 0, 0, 0, 0 };

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

    juce::Label& statusLabel (const juce::String& name) const
    {
        for (auto* label : find<juce::Label>())
            if (label->getName() == name)
                return *label;

        throw std::runtime_error ("no such label");
    }

    juce::String label (const juce::String& name) const { return statusLabel (name).getText(); }

    juce::String status() const { return label ("samplerate") + "|" + label ("buffsize") + "|" + label ("bufftime"); }
};

TEST_F (ContentTests, everythingHasItsPlace)
{
    makeContent (3);
    EXPECT_EQ (content->getBounds(), juce::Rectangle<int> (640, 652));
    const auto buttons = find<juce::TextButton>();
    ASSERT_EQ (buttons.size(), 3u);
    EXPECT_EQ (buttons[0]->getBounds(), juce::Rectangle<int> (125, 606, 70, 26));
    EXPECT_EQ (buttons[0]->getButtonText() + buttons[1]->getButtonText() + buttons[2]->getButtonText(),
               "SaveResetEvents");
    ASSERT_EQ (find<Column>().size(), 3u);
    EXPECT_EQ (find<Column>()[2]->getBounds(), juce::Rectangle<int> (470, 92, 150, 504));
    EXPECT_EQ (statusLabel ("bufftime").getBounds(), juce::Rectangle<int> (170, 58, 112, 14));

    const auto labels = find<juce::Label>();
    ASSERT_EQ (labels.size(), 26u);
    juce::StringArray texts;

    for (std::size_t i = 3; i < labels.size(); ++i)
        texts.add (labels[i]->getText());

    EXPECT_EQ (texts.joinIntoString (","),
               "Playback,Buffer count,Maximum time,Average time,Record,Buffer count,Maximum time,Average time,"
               "ASIO wakeup,Maximum time,Average time,ASIO host,Maximum time,Average time,"
               "Buffer offset,Maximum time,Minimum time,Average time,"
               "Firmware,FIFO level,Overflow,Underrun,Sync count");
    EXPECT_EQ (labels[3]->getBounds(), juce::Rectangle<int> (20, 92, 130, 18));
    EXPECT_EQ (labels[25]->getBounds(), juce::Rectangle<int> (40, 92 + 18 * 27, 110, 18));
}

/** A burst can grow the list between the columns and the width. */
TEST_F (ContentTests, widthAndButtonsFollowTheColumns)
{
    makeContent (1);
    addDriver();
    ASSERT_TRUE (waitFor ([&] { return devices->getNumDevices() == 2; }));

    content->updateWidth();
    EXPECT_EQ (content->getWidth(), 340);
    content->rebuildColumns();
    content->updateWidth();
    EXPECT_EQ (content->getWidth(), 490);
    EXPECT_EQ (find<juce::TextButton>()[2]->getBounds(), juce::Rectangle<int> (332, 606, 70, 26));
}

TEST_F (ContentTests, paintsFrameStatusAndBoxes)
{
    makeContent (2);
    content->timerCallback();
    const auto picture = content->createComponentSnapshot (content->getLocalBounds());
    const auto at = [&] (int x, int y) { return picture.getPixelAt (x, y).getARGB(); };

    for (const auto& [x, y, colour] : { std::tuple { 0, 0, 0xffffffffu },
                                        std::tuple { 489, 651, 0xffffffffu },
                                        std::tuple { 1, 1, 0xff0f0f0fu },
                                        std::tuple { 488, 650, 0xff0f0f0fu },
                                        std::tuple { 281, 22, 0xff373737u },
                                        std::tuple { 282, 22, 0xff0f0f0fu },
                                        std::tuple { 281, 71, 0xff373737u },
                                        std::tuple { 170 + 145, 92 + 18 + 2, 0xff4b4b4bu },
                                        std::tuple { 170 + 146, 92 + 18 + 2, 0xff0f0f0fu },
                                        std::tuple { 320 + 4, 92 + 18 * 27 + 15, 0xff4b4b4bu },
                                        std::tuple { 320 + 3, 92 + 18 * 27 + 15, 0xff0f0f0fu } })
        EXPECT_EQ (at (x, y), colour) << x << "," << y;

    // The captions end where the status begins, and something is written there.
    const auto isInked = [&] (juce::Rectangle<int> area)
    {
        for (int y = area.getY(); y < area.getBottom(); ++y)
            for (int x = area.getX(); x < area.getRight(); ++x)
                if (picture.getPixelAt (x, y).getBrightness() > 0.8f)
                    return true;

        return false;
    };

    for (const int y : { 22, 40, 58 })
        EXPECT_TRUE (isInked ({ 58, y, 112, 14 }));

    EXPECT_FALSE (isInked ({ 2, 2, 55, 85 }));
}

TEST_F (ContentTests, aTickComesFourTimesASecondAndAsksForNoMoreThanItNeeds)
{
    makeContent (3);
    EXPECT_EQ (content->getTimerInterval(), 250);

    for (auto& driver : drivers)
        driver->forgetRecords();

    constexpr int ticks = 10;

    for (int i = 0; i < ticks; ++i)
        content->timerCallback();

    for (auto& driver : drivers)
    {
        const bool isNewest = driver.get() == &newest();
        EXPECT_EQ (driver->count (TestDriver::readCounters), ticks);
        EXPECT_EQ (driver->count (TestDriver::streamStatus), isNewest ? ticks : 0);
        EXPECT_EQ (driver->getRecords().size(), static_cast<std::size_t> (isNewest ? 2 * ticks : ticks));
    }
}

TEST_F (ContentTests, streamStatusFollowsTheNewestDevice)
{
    makeContent (2);
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

TEST_F (ContentTests, resetAsksTheDriverThenTheFirmwareOfEachDevice)
{
    makeContent (2);

    for (auto& driver : drivers)
        driver->forgetRecords();

    find<juce::TextButton>()[1]->triggerClick();
    ASSERT_TRUE (runMessagesUntil ([&] { return drivers.front()->count (TestDriver::clearCounters) > 0; }));

    for (auto& driver : drivers)
    {
        EXPECT_EQ (driver->count (TestDriver::resetStatistics), 1);
        EXPECT_EQ (driver->count (TestDriver::clearCounters), 1);
        const auto records = driver->getRecords();
        const auto reset =
            std::find_if (records.begin(),
                          records.end(),
                          [] (const auto& record) { return record.kind == TestDriver::resetStatistics; });
        ASSERT_NE (reset + 1, records.end());
        EXPECT_EQ ((reset + 1)->kind, TestDriver::clearCounters);
    }
}

/** Between a change of the list and the message about it, a column still shows its own device. */
TEST_F (ContentTests, columnsStayWithTheirDevicesWhileTheListMovesOn)
{
    makeContent (1);
    StatisticsBlock block {};
    block.playbackBufferCount = 111;
    drivers[0]->setStatistics (block);
    block.playbackBufferCount = 222;
    addDriver().setStatistics (block);

    ASSERT_TRUE (waitFor ([&] { return devices->getNumDevices() == 2; }));
    devices->getDevice (0)->open();
    content->timerCallback();
    EXPECT_EQ (find<Column>()[0]->getText (playbackCountRow), "111");

    content->rebuildColumns();
    content->updateWidth();
    content->timerCallback();
    ASSERT_EQ (find<Column>().size(), 2u);
    EXPECT_EQ (find<Column>()[0]->getText (playbackCountRow), "222");
    EXPECT_EQ (find<Column>()[1]->getText (playbackCountRow), "111");
    EXPECT_EQ (content->getWidth(), 490);
}

/** A change is followed at once; those that come before the message loop has had a turn share the next rebuild. */
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

/** The figures of a device that dies stay as they were. */
TEST_F (ContentTests, deadDriversLeaveTheirFigures)
{
    makeContent (2);
    StatisticsBlock block {};
    block.playbackBufferCount = 111;
    drivers[0]->setStatistics (block);
    drivers[0]->counterWords[DriverProtocol::syncCountWord] = 7;
    content->timerCallback();

    drivers[0]->kill();
    content->timerCallback();

    const auto* column = find<Column>()[1];
    EXPECT_EQ (column->getText (playbackCountRow), "111");
    EXPECT_EQ (column->getText (StatisticsLayout::syncCountRow), "7");
}

} // namespace
