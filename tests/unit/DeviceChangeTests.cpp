#include "device/CDevChangeNotify.h"
#include "device/DeviceChangeMessage.h"
#include "device/DeviceList.h"
#include "platform/linux/HandleNotification.h"
#include "stats/Content.h"
#include "stats/StatisticsBlock.h"
#include "tests/unit/support/TestDriver.h"
#include "tests/unit/support/Toolkit.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <thread>

namespace
{

struct Listener : public juce::MessageListener
{
    void handleMessage (const juce::Message& message) override
    {
        changes.push_back (DeviceChangeMessage::getChange (message));
    }

    std::vector<int> changes;
};

struct DeviceChangeTests : public testing::Test
{
    TestMachine machine;
    Listener listener;

    static TestDriver::Setup named (const std::string& name) { return { .name = name, .uniqueName = name + '\0' }; }

    std::unique_ptr<TestDriver> plugIn (const std::string& name)
    {
        return std::make_unique<TestDriver> (machine, named (name));
    }

    /** What the system tells the windows that registered an open handle of the interface; their number. */
    static int notifyHandles (const std::string& name, WPARAM event)
    {
        return notifyHandlesOf (TestMachine::getInterfacePath (name).toStdString(), event);
    }

    /** Names of the list's devices, in its order. */
    static juce::String namesOf (const DeviceList& devices)
    {
        juce::StringArray names;

        for (const auto& device : devices.getDevices())
            names.add (device->getName());

        return names.joinIntoString (",");
    }
};

TEST_F (DeviceChangeTests, arrivalsAndRemovalsReachTheListener)
{
    auto a = plugIn ("a");
    DeviceList devices;
    devices.setListener (&listener);

    auto b = plugIn ("b");
    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 1; }));
    EXPECT_EQ (namesOf (devices), "b,a");

    for (const auto& device : devices.getDevices())
        device->open();

    a->unplug();
    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 2; }));
    EXPECT_EQ (namesOf (devices), "b");

    b->kill();
    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 3; }));
    EXPECT_EQ (devices.getNumDevices(), 0);
    EXPECT_EQ (listener.changes,
               (std::vector<int> { DeviceArrivedMessage, DeviceRemovedMessage, DeviceRemovedMessage }));

    devices.setListener (nullptr);
}

/** What comes and goes between the first listing and the start of the notifications is made up for. */
TEST_F (DeviceChangeTests, changesBeforeTheListenerAreNotLost)
{
    auto a = plugIn ("a"), b = plugIn ("b");
    DeviceList devices;

    for (const auto& device : devices.getDevices())
        device->open();

    const auto c = plugIn ("c");
    b->unplug();
    devices.setListener (&listener);

    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 2; }));
    EXPECT_EQ (namesOf (devices), "c,a");
    devices.setListener (nullptr);
}

/** Notifications by hand, as other systems send them. */
TEST_F (DeviceChangeTests, onlyConfirmedRemovalsOfInterfacesCount)
{
    const auto a = plugIn ("a");
    DeviceList devices;
    devices.getDevice (0)->open();
    CDevChangeNotify notify (DeviceInterfaceGuid, devices);

    const auto send = [&] (WPARAM event, const juce::String& path, DWORD type = DBT_DEVTYP_DEVICEINTERFACE)
    {
        std::vector<DEV_BROADCAST_DEVICEINTERFACE_A> storage (8);
        storage[0].dbcc_size = static_cast<DWORD> (28 + path.getNumBytesAsUTF8() + 1);
        storage[0].dbcc_devicetype = type;
        std::memcpy (reinterpret_cast<char*> (storage.data()) + 28, path.toRawUTF8(), path.getNumBytesAsUTF8() + 1);
        notify.handleWin32Message (WM_DEVICECHANGE, event, reinterpret_cast<LPARAM> (storage.data()));
        return devices.getNumDevices();
    };

    const auto path = TestMachine::getInterfacePath ("a");
    a->fail (TestDriver::probe);
    EXPECT_EQ (send (DBT_DEVICEREMOVECOMPLETE, path), 1) << "nobody listens";
    notify.setListener (&listener);

    EXPECT_EQ (send (DBT_DEVICEREMOVECOMPLETE, path, 3), 1) << "not an interface";

    const auto cutOff = std::make_unique<DEV_BROADCAST_HDR> (DEV_BROADCAST_HDR { 12, DBT_DEVTYP_HANDLE, 0 });
    notify.handleWin32Message (WM_DEVICECHANGE, DBT_DEVICEQUERYREMOVE, reinterpret_cast<LPARAM> (cutOff.get()));
    EXPECT_FALSE (devices.getDevice (0)->isClosedForRemoval());

    EXPECT_EQ (send (DBT_DEVICEQUERYREMOVEFAILED, path), 1);
    EXPECT_EQ (send (DBT_DEVICEREMOVECOMPLETE, path + "x"), 1);

    a->setOverride ({});
    for (const auto event : { DBT_DEVICEQUERYREMOVE, DBT_DEVICEREMOVEPENDING, DBT_DEVICEREMOVECOMPLETE })
        EXPECT_EQ (send (event, path), 1) << "it still answers";

    EXPECT_EQ (send (DBT_DEVICEARRIVAL, path.toUpperCase()), 1) << "it is there already";

    a->fail (TestDriver::probe);
    EXPECT_EQ (send (DBT_DEVICEQUERYREMOVE, path.toUpperCase()), 0);
    EXPECT_EQ (send (DBT_DEVICEARRIVAL, path), 1);

    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 2; }));
    EXPECT_EQ (listener.changes, (std::vector<int> { DeviceRemovedMessage, DeviceArrivedMessage }));
    notify.setListener (nullptr);
}

/** A driver's update is asked for with a query, which an open handle forbids. */
TEST_F (DeviceChangeTests, aDeviceThatIsToGoAndStaysKeepsItsPlace)
{
    const auto a = plugIn ("a"), b = plugIn ("b");
    DeviceList devices;
    Content content (devices);
    const auto device = devices.getDevice (1);

    const auto showing = [&] (int played)
    {
        StatisticsBlock block {};
        block.playbackBufferCount = played;
        a->setStatistics (block);
        content.timerCallback();
        juce::StringArray columns;

        for (auto* child : content.getChildren())
            if (const auto* column = dynamic_cast<Column*> (child))
                columns.add (column->getTitle() + column->getText (1));

        return columns.joinIntoString (",");
    };

    EXPECT_EQ (showing (7), "b0,a7");
    const int open = countOfProcess ("fd");
    const int probes = a->count (TestDriver::probe);

    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVE), 1);
    EXPECT_LE (countOfProcess ("fd"), open - 3) << "connection, folder and section have to be closed by now";
    EXPECT_EQ (device->getStatisticsAddress(), 0u) << "another's block can be there by now";
    EXPECT_EQ (showing (8), "b0,a7") << "it is closed, and its figures stay";
    EXPECT_NE (device->probe(), 0);
    EXPECT_EQ (devices.getDevice (0)->probe(), 0) << "nobody asked for this one";
    DriverProtocol::EventLogEntry entry {};
    EXPECT_NE (device->readEventEntry (0, entry), 0);

    const auto c = plugIn ("c");
    ASSERT_TRUE (runMessagesUntil ([&] { return content.getWidth() == 640; }));
    EXPECT_EQ (showing (8), "c0,b0,a0") << "columns made anew open what is open, and nothing else";
    EXPECT_EQ (a->count (TestDriver::mapStatistics), 1);

    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVEFAILED), 1);
    EXPECT_EQ (showing (9), "c0,b0,a9");
    EXPECT_EQ (a->count (TestDriver::probe), probes);
    EXPECT_EQ (device, devices.getDevice (2)) << "the same device as before";

    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVEFAILED), 1);
    EXPECT_EQ (a->count (TestDriver::mapStatistics), 2) << "nothing to open again";

    device->close();
    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVE), 0) << "nothing is registered any more";
}

TEST_F (DeviceChangeTests, aDeviceThatIsToGoAndGoesLeavesTheListWithItsInterface)
{
    auto a = plugIn ("a");
    const auto b = plugIn ("b");
    DeviceList devices;
    CDevChangeNotify byHand (DeviceInterfaceGuid, devices, &listener);

    for (const auto& device : devices.getDevices())
        device->open();

    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVE), 1);

    DEV_BROADCAST_DEVICEINTERFACE_A event[2] {};
    event->dbcc_size = sizeof (event);
    event->dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    TestMachine::getInterfacePath ("a").copyToUTF8 (event->dbcc_name, sizeof (event) - 28);

    for (const auto change : { DBT_DEVICEQUERYREMOVE, DBT_DEVICEREMOVEPENDING })
    {
        byHand.handleWin32Message (WM_DEVICECHANGE, change, reinterpret_cast<LPARAM> (event));
        EXPECT_EQ (namesOf (devices), "b,a") << "it may yet stay";
    }

    EXPECT_EQ (notifyHandles ("a", DBT_DEVICEREMOVECOMPLETE), 1);
    EXPECT_EQ (namesOf (devices), "b,a") << "its interface is there";
    a.reset();
    ASSERT_TRUE (runMessagesUntil ([&] { return ! listener.changes.empty(); }));
    EXPECT_EQ (namesOf (devices), "b");
    a = plugIn ("a");
    ASSERT_TRUE (runMessagesUntil ([&] { return listener.changes.size() == 2; }));
    EXPECT_EQ (namesOf (devices), "a,b");
    byHand.setListener (nullptr);
}

/** It ends with the entry that is being read when the system asks. */
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
            EXPECT_EQ (notifyHandles ("a", DBT_DEVICEQUERYREMOVE), 1);
        });

    DriverProtocol::EventLogEntry entry {};
    EXPECT_EQ (device->readEventEntry (0, entry), 0);
    EXPECT_NE (device->readEventEntry (1, entry), 0);
    system.join();
    EXPECT_EQ (numRead, 1);
    devices.setListener (nullptr);
}

TEST_F (DeviceChangeTests, postedMessagesDieWithTheirListener)
{
    auto a = plugIn ("a");
    DeviceList devices;
    auto doomed = std::make_unique<Listener>();
    devices.setListener (doomed.get());

    std::vector<std::unique_ptr<TestDriver>> burst;

    for (int i = 0; i < 5; ++i)
        burst.push_back (plugIn ("b" + std::to_string (i)));

    devices.setListener (nullptr);
    doomed.reset();
    devices.setListener (&listener);
    burst.push_back (plugIn ("last"));
    ASSERT_TRUE (runMessagesUntil ([&] { return ! listener.changes.empty(); }));
    devices.setListener (nullptr);
}

//==============================================================================
/** A view that a machine changes under. */
struct DeviceChangeSoakTests : public DeviceChangeTests
{
    static constexpr int maximumInterfaces = 8;
    std::map<std::string, std::unique_ptr<TestDriver>> drivers;
    std::mt19937 random { 20261124 };

    /** One change: an arrival, a removal, a crash, an interface that cannot be probed, or an update that fails. */
    void change()
    {
        const auto name = "d" + std::to_string (random() % maximumInterfaces);

        if (auto& driver = drivers[name]; driver == nullptr)
        {
            driver = plugIn (name);
            StatisticsBlock block {};
            block.playbackBufferCount = name[1] - '0';
            driver->setStatistics (block);
            return;
        }

        const auto kind = random() % 9;

        if (kind == 8)
        {
            notifyHandles (name, DBT_DEVICEQUERYREMOVE);
            notifyHandles (name, DBT_DEVICEQUERYREMOVEFAILED);
            return;
        }

        if (kind == 0)
            drivers[name]->fail (TestDriver::probe);
        else if (kind < 4)
            drivers[name]->kill();
        else
            drivers[name]->unplug();

        if (kind != 0)
            drivers[name].reset();
    }

    juce::String present() const
    {
        juce::StringArray names;

        for (const auto& [name, driver] : drivers)
            if (driver != nullptr)
                names.add (name);

        return names.joinIntoString (",");
    }
};

TEST_F (DeviceChangeSoakTests, viewFollowsAThousandChanges)
{
    const auto anchor = plugIn ("anchor");
    int descriptors = 0, threads = 0;

    const int numChanges = getCount ("QUENDEL_SOAK_CHANGES", 1000);

    const auto soak = [&] (int changes)
    {
        DeviceList devices;
        Content content (devices);

        for (int i = 0; i < changes; ++i)
        {
            change();

            if (random() % 4 == 0)
                content.timerCallback();

            if (random() % 16 == 0)
            {
                content.createComponentSnapshot (content.getLocalBounds());
                juce::MessageManager::getInstance()->runDispatchLoopUntil (1);
            }
        }

        const auto listed = [&]
        {
            auto names = juce::StringArray::fromTokens (namesOf (devices), ",", {});
            names.removeString ("anchor");
            names.sort (false);
            return names.joinIntoString (",");
        };

        EXPECT_TRUE (runMessagesUntil ([&] { return listed() == present(); })) << listed() << " not " << present();

        // Each device has a figure of its own, which its column shows.
        const auto expected = [&]
        {
            juce::StringArray figures;

            for (const auto& device : devices.getDevices())
                figures.add (device->getName() == "anchor" ? juce::String ("0") : device->getName().substring (1));

            return figures.joinIntoString (",");
        };

        const auto shown = [&]
        {
            juce::StringArray figures;
            content.timerCallback();

            for (auto* child : content.getChildren())
                if (const auto* column = dynamic_cast<Column*> (child))
                    figures.add (column->getText (1));

            return figures.joinIntoString (",");
        };

        EXPECT_TRUE (runMessagesUntil ([&] { return shown() == expected(); })) << shown() << " not " << expected();
        EXPECT_EQ (content.getWidth(), 150 * devices.getNumDevices() + 190);
        drivers.clear();
        EXPECT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 1; }));
    };

    // The first round warms up what lives as long as the process.
    soak (20);
    descriptors = countOfProcess ("fd");
    threads = countOfProcess ("task");
    soak (numChanges);

    // A driver closes its end of a connection some time after the program has closed the other.
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("fd") <= descriptors; })) << countOfProcess ("fd");
    EXPECT_TRUE (waitFor ([&] { return countOfProcess ("task") <= threads; })) << countOfProcess ("task");
}

TEST_F (DeviceChangeSoakTests, sameInterfaceComingBackIsOneColumn)
{
    const auto anchor = plugIn ("anchor");
    DeviceList devices;
    Content content (devices);

    for (int i = 0; i < 100; ++i)
    {
        auto driver = plugIn ("d1");

        if (i % 2 == 0)
        {
            ASSERT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 2; }));
        }

        driver->kill();
    }

    const auto driver = plugIn ("d1");
    ASSERT_TRUE (runMessagesUntil ([&] { return namesOf (devices) == "d1,anchor" && content.getWidth() == 490; }));

    // An interface that only moves out of sight and back keeps its driver, and its one place.
    const auto folder = machine.getInterfaceFolder ("d1");
    ASSERT_TRUE (folder.moveFileTo (folder.getSiblingFile (".d1")));
    ASSERT_TRUE (folder.getSiblingFile (".d1").moveFileTo (folder));
    const auto last = plugIn ("d2");
    ASSERT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 3; }));
    EXPECT_EQ (namesOf (devices), "d2,d1,anchor");
}

/** The application's start and stop, its notification thread included, while interfaces never stop coming and going. */
TEST_F (DeviceChangeSoakTests, startsAndStopsInAStormOfChanges)
{
    const auto anchor = plugIn ("anchor");
    const int threads = countOfProcess ("task");
    const int rounds = getCount ("QUENDEL_STORM_ROUNDS", 30);
    std::atomic<bool> calm { false };
    std::mutex lull;

    std::thread storm (
        [&]
        {
            while (! calm)
            {
                const std::scoped_lock blowing (lull);
                change();
            }

            drivers.clear();
        });

    for (int round = 0; round < rounds; ++round)
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

        toolkit.reset();

        // It must not come up while another thread opens descriptors.
        const std::scoped_lock still (lull);
        restartToolkit();
    }

    calm = true;
    storm.join();
    EXPECT_LE (countOfProcess ("task"), threads);
}

} // namespace
