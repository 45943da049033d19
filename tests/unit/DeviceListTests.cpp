#include "device/HostControllerList.h"
#include "tests/unit/support/Devices.h"

#include <cstring>
#include <gtest/gtest.h>

using Bytes = Machine::Bytes;

namespace
{

void putWord (Bytes& bytes, std::size_t offset, std::uint32_t word)
{
    std::memcpy (bytes.data() + offset, &word, sizeof (word));
}

TEST (DeviceListTests, listsNewestFirst)
{
    const TestMachine machine;
    const TestDriver a (machine, { .name = "a" }), b (machine, { .name = "b" });
    DeviceList devices;
    EXPECT_EQ (devices.getDevice (2), nullptr);
    EXPECT_EQ (devices.getDevice (-1), nullptr);

    EXPECT_EQ (namesOf (devices), "b,a");

    const TestDriver c (machine, { .name = "c" });
    const auto path = TestMachine::getInterfacePath ("c");
    const auto found = devices.scan (&path);
    ASSERT_NE (found, nullptr);
    EXPECT_EQ (found->getPath(), path);
    EXPECT_EQ (devices.findByPath (path.toUpperCase()), found);
    EXPECT_EQ (namesOf (devices), "c,b,a");

    const juce::String nowhere ("\\\\?\\nowhere");
    EXPECT_EQ (devices.scan (&nowhere), nullptr);
    devices.removeByPath (nowhere);
    EXPECT_EQ (namesOf (devices), "c,b,a");
    devices.removeByPath (TestMachine::getInterfacePath ("B"));
    EXPECT_EQ (namesOf (devices), "c,a");
}

TEST (DeviceListTests, vendorFilterLeavesOthersOut)
{
    struct Sink : public DeviceList::LogSink
    {
        void logMessage (const juce::String& line) override { lines.add (line); }
        juce::StringArray lines;
    };

    TestDriver::Setup wanted { .name = "wanted" };
    putWord (*wanted.capabilities, 4, 0x00C3F1AA);
    putWord (*wanted.capabilities, 12, 0x1F);
    const TestMachine machine;
    const TestDriver first (machine, wanted), second (machine, { .name = "other" });

    Sink sink;
    juce::CriticalSection lock;
    const int vendors[] { 0x123456, 0x00C3F1 };
    const DeviceList devices (2, vendors, &lock, &sink);
    EXPECT_EQ (devices.getNumDevices(), 1);
    EXPECT_EQ (sink.lines.joinIntoString ("\n"),
               "Ignoring device other  vendor:0x0  type:0x0\nFound device wanted  vendor:0xc3f1  type:0x1f");
}

TEST (DeviceListTests, namesComeFromTheRegistryAsFarAsTheyCan)
{
    const std::string z (1, '\0');
    const auto utf8 = [] (const char* text) { return juce::String::fromUTF8 (text); };

    for (const auto& [stored, expected] :
         { std::pair { std::optional<std::string>(), utf8 ("Tamrix") },
           std::pair { std::optional (std::string ("De\0ck\0", 6)), utf8 ("De") },
           std::pair { std::optional (z), utf8 ("") },
           std::pair { std::optional (std::string (64, 'n')), juce::String::repeatedString ("n", 63) },
           std::pair { std::optional (std::string (64, 'n') + z), utf8 ("Tamrix") },
           std::pair { std::optional ("Ger\xc3\xa4t \xce\xa9" + z), utf8 ("Ger\xc3\xa4t \xce\xa9") },
           std::pair { std::optional ("Ger\xe4t" + z), utf8 ("Ger\xc3\xa4t") },
           std::pair { std::optional ("\xc1\xbf" + z), utf8 ("\xc3\x81\xc2\xbf") },
           std::pair { std::optional ("\xed\xa0\x80" + z), utf8 ("\xc3\xad\xc2\xa0\xc2\x80") } })
        EXPECT_EQ (OneDevice ({ .uniqueName = stored }).device->getName(), expected);

    const OneDevice keyless ({ .hasRegistryKey = false });
    EXPECT_EQ (keyless.device->getName(), "");
    EXPECT_EQ (keyless.device->open(), 1);
}

TEST (DeviceListTests, capabilitiesMayBeShortAndMustNotBeLong)
{
    Bytes full (260);
    putWord (full, 4, 0xABCDEF77);
    putWord (full, 164, 0x05060708);

    // A record that claims a longer probe reply than the reply area holds gets the size of that area.
    constexpr auto huge = 0xFFFFFFFFu;

    for (const auto& [size, first, second, vendor, armVersion, probeSize] :
         { std::tuple { 0u, 3u, 4u, 0u, 0u, 64u },
           std::tuple { 8u, 3u, 4u, 0xABCDEFu, 0u, 64u },
           std::tuple { 166u, 3u, 4u, 0xABCDEFu, 0x0708u, 7u * 4 + 64 },
           std::tuple { 260u, 3u, 4u, 0xABCDEFu, 0x05060708u, 7u * 4 + 64 },
           std::tuple { 261u, 3u, 4u, 0u, 0u, 64u },
           std::tuple { 260u, 60u, 40u, 0xABCDEFu, 0x05060708u, 464u },
           std::tuple { 260u, 60u, 41u, 0xABCDEFu, 0x05060708u, 464u },
           std::tuple { 260u, huge, huge, 0xABCDEFu, 0x05060708u, 464u },
           std::tuple { 260u, 0x40000000u, 0u, 0xABCDEFu, 0x05060708u, 464u } })
    {
        TestDriver::Setup setup { .capabilities = full };
        putWord (*setup.capabilities, 96, first);
        putWord (*setup.capabilities, 100, second);
        setup.capabilities->resize (size);
        OneDevice one (setup);
        EXPECT_EQ (one.device->open(), size <= 260 ? 0 : 1) << size;
        EXPECT_EQ (one.device->getVendorId(), vendor) << size;
        EXPECT_EQ (one.device->getCaps().getArmVersion(), armVersion) << size;
        EXPECT_EQ (one.device->probe(), 0) << size;
        EXPECT_EQ (one.driver.getRecords().back().outputSize, probeSize) << size << " " << first << " " << second;
    }
}

TEST (DeviceListTests, opensAreCountedAndMapTheStatisticsOnce)
{
    OneDevice one;
    const auto& device = one.device;
    device->close();
    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (one.driver.count (TestDriver::mapStatistics), 1);

    const auto address = device->getStatisticsAddress();
    device->close();
    EXPECT_EQ (device->readStreamStatus(), 0);
    device->close();
    EXPECT_EQ (device->readStreamStatus(), 1);
    device->close();

    EXPECT_EQ (device->open(), 0);
    EXPECT_EQ (one.driver.count (TestDriver::mapStatistics), 2);
    EXPECT_NE (device->getStatisticsAddress(), address) << "an old address must not show another block's figures";

    one.driver.fail (TestDriver::mapStatistics);
    device->reopen();
    EXPECT_EQ (device->getStatisticsAddress(), 0u) << "nor must that of an earlier open";
}

TEST (DeviceListTests, deviceThatCannotBeOpenedStaysUnusable)
{
    const OneDevice one;
    const auto& device = one.device;
    const auto socket = one.machine.getInterfaceFolder ("device").getChildFile ("driver");
    const auto elsewhere = socket.getSiblingFile ("elsewhere");

    ASSERT_TRUE (socket.moveFileTo (elsewhere));
    EXPECT_EQ (device->open(), 1);
    ASSERT_TRUE (elsewhere.moveFileTo (socket));
    EXPECT_EQ (device->open(), 1);
    EXPECT_EQ (device->readStreamStatus(), 0) << "it was opened all the same";
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
    const auto file = machine.getInterfaceFolder ("file");
    file.replaceWithText ("no folder");
    machine.getInterfaceFolder ("device").createSymbolicLink (file.getSiblingFile ("link"), false);

    EXPECT_EQ (countDevices ("/nonexistent"), 0);
    EXPECT_EQ (countDevices (file.getFullPathName()), 0);
    EXPECT_EQ (countDevices (machine.getPath()), 1) << "files and links among the interfaces are none";
    EXPECT_TRUE (HostControllerList().isEmpty());

    // Only root can give a folder to somebody else.
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
    EXPECT_EQ (HostControllerList().joinIntoString (","), "PCI\\B," + juce::String (longId) + ",PCI\\A");
}

} // namespace
