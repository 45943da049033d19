#include "device/DeviceList.h"
#include "device/HostControllerList.h"
#include "tests/unit/support/TestDriver.h"

#include <cstring>
#include <gtest/gtest.h>

using Bytes = Machine::Bytes;

namespace
{

void putWord (Bytes& bytes, std::size_t offset, std::uint32_t word)
{
    std::memcpy (bytes.data() + offset, &word, sizeof (word));
}

TestDriver::Setup named (const std::string& name)
{
    TestDriver::Setup setup;
    setup.name = name;
    setup.uniqueName = name + '\0';
    return setup;
}

/** The only device of a machine with such an interface. */
HwDevice::Ptr makeDevice (const TestDriver::Setup& setup, std::unique_ptr<TestDriver>& driver)
{
    const TestMachine machine;
    driver = std::make_unique<TestDriver> (machine, setup);
    return DeviceList().getDevice (0);
}

TEST (DeviceListTests, listsNewestFirst)
{
    const TestMachine machine;
    TestDriver a (machine, named ("a")), b (machine, named ("b"));
    DeviceList devices;

    ASSERT_EQ (devices.getNumDevices(), 2);
    EXPECT_EQ (devices.getDevice (0)->getName(), "b");
    EXPECT_EQ (devices.getDevice (1)->getName(), "a");
    EXPECT_EQ (devices.getDevice (2), nullptr);
    EXPECT_EQ (devices.getDevice (-1), nullptr);

    TestDriver c (machine, named ("c"));
    const auto path = TestMachine::getInterfacePath ("c");
    const auto found = devices.scan (&path);
    EXPECT_EQ (found, devices.getDevice (0));
    EXPECT_EQ (devices.getDevice (0)->getPath(), path);
    EXPECT_EQ (devices.findByPath (path.toUpperCase()), devices.getDevice (0));

    const juce::String nowhere ("\\\\?\\nowhere");
    EXPECT_EQ (devices.scan (&nowhere), nullptr);
    devices.removeByPath (nowhere);
    EXPECT_EQ (devices.getNumDevices(), 3);

    devices.removeByPath (TestMachine::getInterfacePath ("B"));
    devices.removeByPath (path);
    ASSERT_EQ (devices.getNumDevices(), 1);
    EXPECT_EQ (devices.getDevice (0)->getName(), "a");
    EXPECT_EQ (devices.getDevices().size(), 1u);
}

TEST (DeviceListTests, vendorFilterLeavesOthersOut)
{
    struct Sink : public DeviceList::LogSink
    {
        void logMessage (const juce::String& line) override { lines.add (line); }
        juce::StringArray lines;
    };

    const TestMachine machine;
    auto wanted = named ("wanted"), other = named ("other");
    putWord (*wanted.capabilities, 4, 0x00C3F1AA);
    putWord (*wanted.capabilities, 12, 0x1F);
    const TestDriver first (machine, wanted), second (machine, other);

    Sink sink;
    juce::CriticalSection lock;
    const int vendors[] { 0x123456, 0x00C3F1 };
    const DeviceList devices (2, vendors, &lock, &sink);

    ASSERT_EQ (devices.getNumDevices(), 1);
    EXPECT_EQ (devices.getDevice (0)->getName(), "wanted");
    EXPECT_EQ (sink.lines.joinIntoString ("\n"),
               "Ignoring device other  vendor:0x0  type:0x0\nFound device wanted  vendor:0xc3f1  type:0x1f");
}

TEST (DeviceListTests, namesComeFromTheRegistryAsFarAsTheyCan)
{
    struct Case
    {
        std::optional<std::string> stored;
        juce::String expected;
    };

    const std::string z (1, '\0');
    std::unique_ptr<TestDriver> driver;

    for (const auto& c : { Case { std::nullopt, "Tamrix" },
                           Case { "Deck" + z, "Deck" },
                           Case { std::string ("De\0ck\0", 6), "De" },
                           Case { "", "" },
                           Case { z, "" },
                           Case { std::string (63, 'n') + z, juce::String::repeatedString ("n", 63) },
                           Case { std::string (64, 'n'), juce::String::repeatedString ("n", 63) },
                           Case { std::string (64, 'n') + z, "Tamrix" },
                           Case { "Ger\xc3\xa4t \xce\xa9" + z, juce::CharPointer_UTF8 ("Ger\xc3\xa4t \xce\xa9") },
                           Case { "Ger\xe4t" + z, juce::CharPointer_UTF8 ("Ger\xc3\xa4t") },
                           Case { "\xc1\xbf" + z, juce::CharPointer_UTF8 ("\xc3\x81\xc2\xbf") },
                           Case { "\xed\xa0\x80" + z, juce::CharPointer_UTF8 ("\xc3\xad\xc2\xa0\xc2\x80") } })
    {
        TestDriver::Setup setup;
        setup.uniqueName = c.stored;
        const auto device = makeDevice (setup, driver);
        ASSERT_NE (device, nullptr);
        EXPECT_EQ (device->getName(), c.expected);
    }

    TestDriver::Setup setup;
    setup.hasRegistryKey = false;
    const auto device = makeDevice (setup, driver);
    EXPECT_EQ (device->getName(), "");
    EXPECT_EQ (device->open(), 1);
}

TEST (DeviceListTests, capabilitiesMayBeShortAndMustNotBeLong)
{
    Bytes full (260);
    putWord (full, 0, 1u << 4 | 1u << 5);
    putWord (full, 4, 0xABCDEF77);
    putWord (full, 12, 42);
    putWord (full, 96, 3);
    putWord (full, 100, 4);
    putWord (full, 160, 0x01020304);
    putWord (full, 164, 0x05060708);
    putWord (full, 176, 0x090a0b0c);

    for (const std::size_t size : { 0u, 4u, 166u, 180u, 260u, 261u })
    {
        const TestMachine machine;
        TestDriver::Setup setup;
        setup.capabilities = full;
        setup.capabilities->resize (size);
        TestDriver driver (machine, setup);
        const DeviceList devices;
        const auto device = devices.getDevice (0);
        const auto& caps = device->getCaps();
        const bool fits = size <= 260;

        EXPECT_EQ (device->open(), fits ? 0 : 1) << size;

        if (fits)
        {
            EXPECT_EQ (caps.hasDsp(), size >= 4) << size;
            EXPECT_EQ (caps.hasFpga(), size >= 4) << size;
            EXPECT_EQ (caps.getVendorId(), size >= 8 ? 0xABCDEFu : 0u) << size;
            EXPECT_EQ (caps.getTypeId(), size >= 16 ? 42u : 0u) << size;
            EXPECT_EQ (caps.getDspVersion(), size >= 164 ? 0x01020304u : 0u) << size;
            EXPECT_EQ (caps.getArmVersion(), size >= 168 ? 0x05060708u : size == 166 ? 0x0708u : 0u) << size;
            EXPECT_EQ (caps.getFpgaVersion(), size >= 180 ? 0x090a0b0cu : 0u) << size;
        }

        device->probe();
        const auto records = driver.getRecords();
        EXPECT_EQ (records.back().outputSize, fits && size >= 104 ? 7u * 4 + 64 : 64u) << size;
    }
}

/** A record that claims a longer reply than there is room for gets as much as there is room for. */
TEST (DeviceListTests, probeReplyNeverOverrunsItsArea)
{
    for (const auto& [first, second, expected] : { std::tuple { 60u, 40u, 464u },
                                                   std::tuple { 60u, 41u, 464u },
                                                   std::tuple { 0xFFFFFFFFu, 0xFFFFFFFFu, 464u },
                                                   std::tuple { 0x40000000u, 0u, 464u },
                                                   std::tuple { 0u, 0u, 64u } })
    {
        const TestMachine machine;
        TestDriver::Setup setup;
        putWord (*setup.capabilities, 96, first);
        putWord (*setup.capabilities, 100, second);
        TestDriver driver (machine, setup);
        const DeviceList devices;
        devices.getDevice (0)->open();

        EXPECT_EQ (devices.getDevice (0)->probe(), 0);
        EXPECT_EQ (driver.getRecords().back().outputSize, expected);
    }
}

TEST (DeviceListTests, opensAreCountedAndMapTheStatisticsOnce)
{
    const TestMachine machine;
    TestDriver driver (machine);
    const DeviceList devices;
    const auto device = devices.getDevice (0);

    device->close();
    EXPECT_EQ (device->getStatisticsAddress(), 0u);
    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (driver.count (TestDriver::mapStatistics), 1);

    const auto address = device->getStatisticsAddress();
    EXPECT_NE (address, 0u);

    device->close();
    EXPECT_EQ (device->readStreamStatus(), 0);
    device->close();
    EXPECT_EQ (device->readStreamStatus(), 1);
    device->close();

    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (driver.count (TestDriver::mapStatistics), 2);
    EXPECT_NE (device->getStatisticsAddress(), 0u);
    EXPECT_NE (device->getStatisticsAddress(), address) << "an old address must not show another block's figures";

    driver.fail (TestDriver::mapStatistics);
    device->reopen();
    EXPECT_EQ (device->getStatisticsAddress(), 0u) << "nor must that of an earlier open";
}

TEST (DeviceListTests, deviceThatCannotBeOpenedStaysUnusable)
{
    const TestMachine machine;
    auto setup = named ("late");
    TestDriver driver (machine, setup);
    const DeviceList devices;
    const auto device = devices.getDevice (0);
    const auto socket = machine.getInterfaceFolder ("late").getChildFile ("driver");

    ASSERT_TRUE (socket.moveFileTo (socket.getSiblingFile ("elsewhere")));
    EXPECT_EQ (device->open(), 1);
    ASSERT_TRUE (socket.getSiblingFile ("elsewhere").moveFileTo (socket));
    EXPECT_EQ (device->open(), 1);
    EXPECT_EQ (device->readStreamStatus(), 0) << "it was opened all the same";
}

TEST (DeviceListTests, interfacesAreOpenedByTheirVeryBytes)
{
    const TestMachine machine;
    const TestDriver driver (machine, named ("Ger\xe4t"));
    const DeviceList devices;
    ASSERT_EQ (devices.getNumDevices(), 1);
    EXPECT_EQ (devices.getDevice (0)->open(), 0);
}

TEST (DeviceListTests, machineThatIsNotThereHasNoDevices)
{
    const auto countDevices = [] (const juce::String& folder)
    {
        ::setenv ("QUENDEL_MACHINE", folder.toRawUTF8(), 1);
        return DeviceList().getNumDevices();
    };

    const TestMachine machine;
    const TestDriver driver (machine);
    const auto file = machine.getInterfaceFolder ("file").getSiblingFile ("file");
    file.replaceWithText ("no folder");
    machine.getInterfaceFolder ("device").createSymbolicLink (file.getSiblingFile ("link"), false);

    EXPECT_EQ (countDevices ("/nonexistent"), 0);
    EXPECT_EQ (countDevices (file.getFullPathName()), 0);
    EXPECT_EQ (countDevices (machine.getPath()), 1) << "files and links among the interfaces are none";
    EXPECT_TRUE (HostControllerList().isEmpty());

    // Only root can make somebody else's folder.
    if (::geteuid() == 0)
    {
        ASSERT_EQ (::chown (machine.getPath().c_str(), 12345, 12345), 0);
        EXPECT_EQ (countDevices (machine.getPath()), 0);
    }
}

TEST (DeviceListTests, hostControllersAreListedInOrderWhateverTheirLength)
{
    const std::string longId (3000, 'x');
    const TestMachine machine ({ "PCI\\B", longId, "PCI\\A" });

    const HostControllerList controllers;
    ASSERT_EQ (controllers.size(), 3);
    EXPECT_EQ (controllers[0], "PCI\\B");
    EXPECT_EQ (controllers[1], juce::String (longId));
    EXPECT_EQ (controllers[2], "PCI\\A");
}

} // namespace
