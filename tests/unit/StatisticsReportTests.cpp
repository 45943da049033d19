#include "device/DeviceList.h"
#include "protocol/StatisticsBlock.h"
#include "stats/Content.h"
#include "stats/StatisticsReport.h"
#include "tests/unit/support/TestDriver.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

TEST (FirmwareVersionTests, partsThatAreZeroAreLeftOut)
{
    for (const auto& [version, expected] : { std::pair { 0u, "0.0" },
                                             std::pair { 0x0102030Fu, "1.2.3" },
                                             std::pair { 0x01020340u, "1.2.3.4" },
                                             std::pair { 0x01020010u, "1.2.1" },
                                             std::pair { 0xFFFFFFFFu, "255.255.255.15" } })
        EXPECT_EQ (StatisticsReport::formatFirmwareVersion (version), expected);
}

Machine::Bytes makeCapabilities (std::uint32_t flags)
{
    Machine::Bytes bytes (260);
    const auto put = [&] (std::size_t offset, std::uint32_t word) { std::memcpy (bytes.data() + offset, &word, 4); };
    put (0, flags);
    put (160, 0x02010000);
    put (164, 0x01020340);
    put (176, 0x00090500);
    return bytes;
}

constexpr std::uint32_t dsp = 1 << 4, fpga = 1 << 5;

/** A driver with a different figure in each row. */
struct FilledDriver
{
    FilledDriver (const TestMachine& machine, const std::string& name, std::uint32_t flags)
        : driver (machine, { .name = name, .capabilities = makeCapabilities (flags) })
    {
        driver.streamStatusWords = { 0, 0, 48000, 0, 512, 0, 0, 0, 0 };
        driver.counterWords = { 5, 4294967295, 0, 0, 512, 0, 8 };

        StatisticsBlock block {};
        block.playbackBufferCount = 12;
        block.playbackMaximum = 110000;
        block.playbackAverage = 106670;
        block.recordBufferCount = 13;
        block.recordMaximum = 120000;
        block.recordAverage = 106660;
        block.wakeupMaximum = 7340;
        block.wakeupAverage = 850;
        block.hostMaximum = 54320;
        block.hostAverage = 40000;
        block.offsetMaximum = 30000;
        block.offsetMinimum = -10000;
        block.offsetAverage = 20000;
        driver.setStatistics (block);
    }

    TestDriver driver;
};

const juce::Time timeOfSave { 2026, 10, 19, 2, 47, 50 };

/** Compares the report of a view on the present devices, after that many ticks, with the gold file. */
void expectGold (const juce::String& name, int numTicks)
{
    DeviceList devices;
    Content content (devices);

    for (int i = 0; i < numTicks; ++i)
        content.timerCallback();

    const auto report = content.makeReport (timeOfSave);
    const juce::TemporaryFile temporary (".txt");
    temporary.getFile().appendText (report, false, false);
    EXPECT_TRUE (temporary.getFile().hasIdenticalContentTo (juce::File (QUENDEL_ROOT "tests/gold").getChildFile (name)))
        << name << " differs from\n"
        << report;
}

TEST (StatisticsReportTests, reportsEqualTheirGold)
{
    {
        const TestMachine machine;
        const FilledDriver plain (machine, "Deck", 0);
        expectGold ("statistics-no-controller.txt", 0);
    }

    const TestMachine machine ({ "PCI\\VEN_1&DEV_2\\3" });
    const FilledDriver full (machine, "Ger\xc3\xa4t \xce\xa9", dsp | fpga);
    expectGold ("statistics-one-controller.txt", 1);
}

/** Until the view hears of a change to the list, columns and report sections still belong to their own devices. */
TEST (StatisticsReportTests, columnsStayWithTheirDevicesWhileTheListMovesOn)
{
    const TestMachine machine;
    const FilledDriver deck (machine, "a", dsp);
    DeviceList devices;
    Content content (devices);
    content.timerCallback();
    const auto before = content.makeReport (timeOfSave);

    FilledDriver other (machine, "b", fpga);
    other.driver.setStatistics ({});
    other.driver.counterWords = {};
    ASSERT_TRUE (waitFor ([&] { return devices.getNumDevices() == 2; }));
    devices.getDevice (0)->open();
    content.timerCallback();
    content.updateWidth();
    EXPECT_EQ (content.getWidth(), 340);
    EXPECT_EQ (content.makeReport (timeOfSave), before);
    devices.removeByPath (TestMachine::getInterfacePath ("a"));
    EXPECT_EQ (content.makeReport (timeOfSave), before);
}

/** Once the file is open, no error counts as a failure, however long the report is. */
TEST (StatisticsReportTests, afterTheOpeningNobodyHearsOfAnError)
{
    EXPECT_TRUE (StatisticsReport::append (juce::File ("/dev/full"), juce::String::repeatedString ("x", 100000)));
}

} // namespace
