#include "app/AppListener.h"
#include "device/CDevChangeNotify.h"
#include "platform/NotificationWindow.h"
#include "protocol/StatisticsBlock.h"
#include "stats/Content.h"
#include "tests/unit/support/Devices.h"
#include "tests/unit/support/Toolkit.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>

namespace
{

/** Records which devices came and went. */
struct Listener : public juce::MessageListener
{
    void handleMessage (const juce::Message& message) override
    {
        changes << (DeviceChangeMessage::getChange (message) == DeviceArrivedMessage ? "+" : "-");
    }

    juce::String changes;
};

struct DeviceChangeTests : public testing::Test
{
    TestMachine machine;
    Listener listener;

    static void setFigure (TestDriver& driver, int figure)
    {
        StatisticsBlock block {};
        block.playbackBufferCount = figure;
        driver.setStatistics (block);
    }

    /** Each device shows a figure of its own: the last letter of its name. */
    std::unique_ptr<TestDriver> plugIn (const std::string& name)
    {
        auto driver = std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name });
        setFigure (*driver, name.back());
        return driver;
    }

    /** Sends the system's notification about an open file of an interface; the folder stands for the file. */
    void tellOfFile (DeviceList& devices, const std::string& name, WPARAM event)
    {
        DEV_BROADCAST_HANDLE message {};
        message.dbch_size = sizeof (message);
        message.dbch_devicetype = DBT_DEVTYP_HANDLE;
        message.dbch_hdevnotify = reinterpret_cast<HDEVNOTIFY> (machine.getInterfaceFolder (name).getFileIdentifier());
        CDevChangeNotify notify (DeviceInterfaceGuid, devices, &listener);
        notify.handleWin32Message (WM_DEVICECHANGE, event, reinterpret_cast<LPARAM> (&message));
    }

    /** Sends the system's notification about the interface itself. */
    static void
        tell (CDevChangeNotify& notify, WPARAM event, const juce::String& path, DWORD type = DBT_DEVTYP_DEVICEINTERFACE)
    {
        DEV_BROADCAST_DEVICEINTERFACE_A message[2] {};
        message->dbcc_size = sizeof (message);
        message->dbcc_devicetype = type;
        path.copyToUTF8 (message->dbcc_name, sizeof (message) - 28);
        notify.handleWin32Message (WM_DEVICECHANGE, event, reinterpret_cast<LPARAM> (message));
    }

    /** Names and figures of the columns after a tick, in the order of the columns. */
    static juce::StringArray tick (Content& content)
    {
        content.timerCallback();
        juce::StringArray shown;

        for (auto* child : content.getChildren())
            if (const auto* column = dynamic_cast<Column*> (child))
                shown.add (column->getTitle() + " " + column->getText (1));

        return shown;
    }

    /** Waits for these changes, in this order. */
    bool hasHeard (const char* changes) const
    {
        return runMessagesUntil ([&] { return listener.changes == changes; });
    }
};

/** Changes between the first listing and the start of the notifications are found, too. */
TEST_F (DeviceChangeTests, everyChangeReachesTheListener)
{
    auto a = plugIn ("a"), b = plugIn ("b");
    OpenList devices;

    const auto c = plugIn ("c");
    b->unplug();
    devices.setListener (&listener);
    ASSERT_TRUE (hasHeard ("+-"));
    EXPECT_EQ (namesOf (devices), "c,a");

    const auto d = plugIn ("d");
    ASSERT_TRUE (hasHeard ("+-+"));
    EXPECT_EQ (namesOf (devices), "d,c,a");

    a->kill();
    ASSERT_TRUE (hasHeard ("+-+-"));
    EXPECT_EQ (namesOf (devices), "d,c");
}

/** Sends notifications by hand, as other systems send them. */
TEST_F (DeviceChangeTests, onlyConfirmedRemovalsOfInterfacesCount)
{
    const auto a = plugIn ("a");
    OpenList devices;
    CDevChangeNotify notify (DeviceInterfaceGuid, devices);
    const auto path = TestMachine::getInterfacePath ("a");
    const auto countAfter = [&] (WPARAM event, const juce::String& about, DWORD type = DBT_DEVTYP_DEVICEINTERFACE)
    {
        tell (notify, event, about, type);
        return devices.getNumDevices();
    };

    a->fail (TestDriver::probe);
    EXPECT_EQ (countAfter (DBT_DEVICEREMOVECOMPLETE, path), 1) << "nobody listens";

    notify.setListener (&listener);
    EXPECT_EQ (countAfter (DBT_DEVICEREMOVECOMPLETE, path, 3), 1) << "not of an interface";
    EXPECT_EQ (countAfter (DBT_DEVICEREMOVECOMPLETE, path + "x"), 1) << "of another one";
    EXPECT_EQ (countAfter (DBT_DEVICEQUERYREMOVEFAILED, path), 1) << "not a removal";

    const auto cutOff = std::make_unique<DEV_BROADCAST_HDR> (DEV_BROADCAST_HDR { 12, DBT_DEVTYP_HANDLE, 0 });
    notify.handleWin32Message (WM_DEVICECHANGE, DBT_DEVICEQUERYREMOVE, reinterpret_cast<LPARAM> (cutOff.get()));
    EXPECT_FALSE (devices.getDevice (0)->isClosedForRemoval());

    a->setOverride ({});

    for (const auto event : { DBT_DEVICEQUERYREMOVE, DBT_DEVICEREMOVECOMPLETE, DBT_DEVICEARRIVAL })
        EXPECT_EQ (countAfter (event, path), 1) << "it still answers, and is there already";

    a->fail (TestDriver::probe);
    const auto dead = devices.getDevice (0);
    EXPECT_EQ (countAfter (DBT_DEVICEARRIVAL, path), 1);
    EXPECT_NE (devices.getDevice (0), dead) << "its removal went unnoticed";

    for (const auto event : { DBT_DEVICEQUERYREMOVE, DBT_DEVICEREMOVEPENDING })
    {
        EXPECT_EQ (countAfter (event, path.toUpperCase()), 0);
        EXPECT_EQ (countAfter (DBT_DEVICEARRIVAL, path), 1);
    }

    ASSERT_TRUE (hasHeard ("+-+-+"));
    notify.setListener (nullptr);
    EXPECT_EQ (countAfter (DBT_DEVICEREMOVECOMPLETE, path), 1) << "nobody listens any more";
}

/** The names look the same once they are decoded, or differ only in case. */
TEST_F (DeviceChangeTests, interfacesAreTheSameByEveryByteOfTheirNames)
{
    std::vector<std::unique_ptr<TestDriver>> drivers;
    DeviceList devices;
    devices.setListener (&listener);

    for (const std::string name : { "Deck", "deck", "Ger\xe4t", "Ger\xc3\xa4t" })
    {
        drivers.push_back (std::make_unique<TestDriver> (machine, TestDriver::Setup { .name = name }));
        ASSERT_TRUE (waitFor ([&] { return devices.getDevices().size() == drivers.size(); })) << name;
        ASSERT_EQ (devices.getDevice (0)->open(), 0) << name;
    }

    EXPECT_EQ (DeviceList().getNumDevices(), 4);
    drivers[0]->unplug();
    ASSERT_TRUE (hasHeard ("++++-"));
    EXPECT_NE (devices.findByPath (TestMachine::getInterfacePath ("deck")), nullptr);
    EXPECT_EQ (devices.getNumDevices(), 3);
}

/** A list that is empty when its message arrives would end the program. */
TEST_F (DeviceChangeTests, catchingUpNeverTakesTheLastDeviceThatIsThere)
{
    const auto a = plugIn ("a");
    OpenList devices;
    CDevChangeNotify notify (DeviceInterfaceGuid, devices, &listener);
    const auto first = devices.getDevice (0);
    const auto catchUp = [&] { notify.handleWin32Message (NotificationWindow::changesMissed, 1, 0); };

    Silence silence (*a, TestDriver::probe);
    catchUp();
    tell (notify, DBT_DEVICEARRIVAL, first->getPath());
    EXPECT_EQ (devices.getDevice (0), first) << "it is silent, and there";

    silence.end();
    EXPECT_TRUE (waitFor ([&] { return ! first->hasOutstandingRequest(); }));
    a->fail (TestDriver::probe);
    catchUp();
    EXPECT_EQ (devices.getNumDevices(), 1);
    EXPECT_NE (devices.getDevice (0), first) << "another one is there by now";
    tell (notify, DBT_DEVICEREMOVECOMPLETE, first->getPath());
    EXPECT_EQ (devices.getNumDevices(), 1) << "which the news of the first one's end is not about";
    ASSERT_TRUE (hasHeard ("+"));
}

/** The driver of the former folder lives on, where nobody finds it. */
TEST_F (DeviceChangeTests, foldersThatAreMadeAgainAreFollowedAgain)
{
    const auto a = plugIn ("a");
    OpenList devices;
    devices.setListener (&listener);
    const auto folder = machine.getInterfaceFolder ("a").getParentDirectory(), whole = folder.getParentDirectory();
    ASSERT_TRUE (folder.moveFileTo (folder.getSiblingFile ("old")) && folder.createDirectory());
    const auto b = plugIn ("b");
    ASSERT_TRUE (hasHeard ("+"));
    devices.getDevice (0)->open();

    ASSERT_TRUE (whole.moveFileTo (whole.getSiblingFile ("old")));
    Machine::MachineFolder again;
    ASSERT_EQ (again.create (machine.getPath(), {}), "");
    const auto c = plugIn ("c");
    ASSERT_TRUE (hasHeard ("++"));
    EXPECT_EQ (namesOf (devices), "c,b,a");
}

/** Before a driver is updated the system asks, and an open handle would forbid it. */
TEST_F (DeviceChangeTests, aDeviceThatIsToGoAndStaysKeepsItsPlace)
{
    const auto a = plugIn ("a"), b = plugIn ("b");
    DeviceList devices;
    Content content (devices);
    const auto device = devices.getDevice (1);
    const auto showing = [&] (int figure)
    {
        setFigure (*a, figure);
        return tick (content).joinIntoString (",");
    };

    EXPECT_EQ (showing (7), "b 98,a 7");
    const int open = countOfProcess ("fd");

    tellOfFile (devices, "a", DBT_DEVICEQUERYREMOVE);
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("fd") <= open - 2; })) << "connection and section are closed";
    EXPECT_EQ (device->getStatisticsAddress(), 0u) << "another's block can be there by now";
    EXPECT_EQ (showing (8), "b 98,a 7") << "it is closed, and its figures stay";
    EXPECT_NE (device->probe(), 0);
    EXPECT_EQ (devices.getDevice (0)->probe(), 0) << "nobody asked for this one";

    const auto c = plugIn ("c");
    ASSERT_TRUE (runMessagesUntil ([&] { return content.getWidth() == 640; }));
    EXPECT_EQ (showing (8), "c 99,b 98,a 0") << "columns made anew open what is open, and nothing else";
    EXPECT_EQ (a->count (TestDriver::mapStatistics), 1);

    tellOfFile (devices, "a", DBT_DEVICEQUERYREMOVEFAILED);
    EXPECT_EQ (showing (9), "c 99,b 98,a 9");
    EXPECT_EQ (device, devices.getDevice (2)) << "the same device as before";

    tellOfFile (devices, "a", DBT_DEVICEQUERYREMOVEFAILED);
    EXPECT_EQ (a->count (TestDriver::mapStatistics), 2) << "nothing to open again";
}

TEST_F (DeviceChangeTests, aDeviceThatIsToGoAndGoesLeavesTheListWithItsInterface)
{
    auto a = plugIn ("a");
    const auto b = plugIn ("b");
    OpenList devices;
    CDevChangeNotify byHand (DeviceInterfaceGuid, devices, &listener);

    tellOfFile (devices, "a", DBT_DEVICEQUERYREMOVE);
    tell (byHand, DBT_DEVICEQUERYREMOVE, TestMachine::getInterfacePath ("a"));
    tell (byHand, DBT_DEVICEREMOVEPENDING, TestMachine::getInterfacePath ("a"));
    tellOfFile (devices, "a", DBT_DEVICEREMOVECOMPLETE);
    EXPECT_EQ (namesOf (devices), "b,a") << "its interface is there, and it may yet stay";

    a.reset();
    ASSERT_TRUE (hasHeard ("-"));
    EXPECT_EQ (namesOf (devices), "b");
    a = plugIn ("a");
    ASSERT_TRUE (hasHeard ("-+"));
    EXPECT_EQ (namesOf (devices), "a,b");
}

/** The reading ends with the entry that is being read when the system asks. */
TEST_F (DeviceChangeTests, aLogBeingReadDoesNotKeepADeviceFromGoing)
{
    const auto a = plugIn ("a");
    DeviceList devices;
    devices.setListener (&listener);
    const auto device = devices.getDevice (0);
    device->open();
    std::atomic<int> numRead { 0 };
    a->setOverride (
        [&] (TestDriver::Kind kind, int) -> std::optional<TestDriver::Reply>
        {
            if (kind != TestDriver::eventEntry)
                return {};

            ++numRead;
            waitFor ([&] { return device->isClosedForRemoval(); });
            return TestDriver::Reply::success ({});
        });

    std::thread system (
        [&]
        {
            waitFor ([&] { return numRead > 0; });
            tellOfFile (devices, "a", DBT_DEVICEQUERYREMOVE);
        });

    DriverProtocol::EventLogEntry entry {};
    EXPECT_EQ (device->readEventEntry (0, entry), 0);
    EXPECT_NE (device->readEventEntry (1, entry), 0);
    system.join();
    EXPECT_EQ (numRead, 1);
}

/** Without a view, a device that comes changes nothing. */
TEST_F (DeviceChangeTests, withoutAViewOnlyARemovalQuits)
{
    const auto isQuitting = [] { return juce::MessageManager::getInstance()->hasStopMessageBeenSent(); };

    {
        AppListener beforeTheView;
        DeviceList devices;
        devices.setListener (&beforeTheView);
        const auto a = plugIn ("a");
        ASSERT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 1; }));
        beforeTheView.handleMessage (DeviceChangeMessage (DeviceArrivedMessage, nullptr));
        beforeTheView.handleMessage (juce::Message());
        EXPECT_FALSE (isQuitting());

        a->kill();
        EXPECT_TRUE (runMessagesUntil (isQuitting));
        devices.setListener (nullptr);
    }

    restartToolkit();
}

//==============================================================================
/** A view on a machine that keeps changing. */
struct DeviceChangeSoakTests : public DeviceChangeTests
{
    const std::unique_ptr<TestDriver> anchor = plugIn ("anchor");
    std::map<std::string, std::unique_ptr<TestDriver>> drivers;
    std::mt19937 random { 20261124 };

    /** One change: an arrival, a removal, a crash, an interface that cannot be probed, or an update that fails. */
    void change (DeviceList* devices = nullptr)
    {
        constexpr int maximumInterfaces = 8;
        const auto name = "d" + std::to_string (random() % maximumInterfaces);
        auto& driver = drivers[name];
        const auto kind = random() % 9;

        if (driver == nullptr)
        {
            driver = plugIn (name);
        }
        else if (kind == 8 && devices != nullptr)
        {
            for (const auto event : { DBT_DEVICEQUERYREMOVE, DBT_DEVICEQUERYREMOVEFAILED })
                tellOfFile (*devices, name, event);
        }
        else if (kind == 0)
        {
            driver->fail (TestDriver::probe);
        }
        else
        {
            kind < 4 ? driver->kill() : driver->unplug();
            driver.reset();
        }
    }

    /** What the view should show, in alphabetical order. */
    juce::StringArray present() const
    {
        juce::StringArray expected { "anchor 114" };

        for (const auto& [name, driver] : drivers)
            if (driver != nullptr)
                expected.add (juce::String (name) + " " + juce::String (int { name.back() }));

        return expected;
    }
};

TEST_F (DeviceChangeSoakTests, viewFollowsAThousandChanges)
{
    const auto soak = [&] (int changes)
    {
        DeviceList devices;
        Content content (devices);

        for (int i = 0; i < changes; ++i)
        {
            change (&devices);

            if (random() % 4 == 0)
                content.timerCallback();

            if (random() % 16 == 0)
            {
                content.createComponentSnapshot (content.getLocalBounds());
                juce::MessageManager::getInstance()->runDispatchLoopUntil (1);
            }
        }

        const auto shown = [&]
        {
            auto columns = tick (content);
            columns.sort (false);
            return columns;
        };

        EXPECT_TRUE (runMessagesUntil ([&] { return shown() == present(); }))
            << shown().joinIntoString (",") << " not " << present().joinIntoString (",");
        EXPECT_EQ (content.getWidth(), 150 * devices.getNumDevices() + 190);
        drivers.clear();
        EXPECT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 1; }));
    };

    // The first round makes what lives as long as the process.
    soak (20);
    const int descriptors = countOfProcess ("fd"), threads = countOfProcess ("task");
    soak (1000);

    // A driver closes its end of a connection some time after the program has closed its own.
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("fd") <= descriptors; })) << countOfProcess ("fd");
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("task") <= threads; })) << countOfProcess ("task");
}

/** The application starts and stops, notification thread and all, while interfaces keep coming and going. */
TEST_F (DeviceChangeSoakTests, startsAndStopsInAStormOfChanges)
{
    const int threads = countOfProcess ("task");
    std::atomic<bool> calm { false };

    std::thread storm (
        [&]
        {
            while (! calm)
                change();

            drivers.clear();
        });

    for (int round = 0; round < 30; ++round)
    {
        {
            Listener beforeTheView;
            DeviceList devices;
            devices.setListener (&beforeTheView);
            auto content = std::make_unique<Content> (devices);

            for (int i = 0; i < round % 4; ++i)
                juce::MessageManager::getInstance()->runDispatchLoopUntil (1);

            content->timerCallback();
            content.reset();
            devices.setListener (nullptr);
            EXPECT_NE (devices.findByPath (TestMachine::getInterfacePath ("anchor")), nullptr);
        }

        restartToolkit();
    }

    calm = true;
    storm.join();
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("task") <= threads; })) << countOfProcess ("task");
}

} // namespace
