#include "device/DeviceList.h"
#include "stats/Content.h"
#include "stats/StatisticsBlock.h"
#include "stats/StatisticsReport.h"
#include "tests/unit/support/TestDriver.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

TEST (FirmwareVersionTests, partsThatAreZeroAreLeftOut)
{
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0), "0.0");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0x01020000), "1.2");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0x01020300), "1.2.3");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0x0102030F), "1.2.3");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0x01020340), "1.2.3.4");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0x01020010), "1.2.1");
    EXPECT_EQ (StatisticsReport::formatFirmwareVersion (0xFFFFFFFF), "255.255.255.15");
}

TEST (ReportTimeTests, hoursAreThoseOfATwelveHourClock)
{
    const auto timeIn = [] (const juce::Time& time)
    { return juce::StringArray::fromLines (StatisticsReport::make (time, {}, 0, 0, {}, {}))[2]; };

    EXPECT_EQ (timeIn ({ 2026, 10, 19, 2, 47, 50 }), "19 Nov 2026 2:47:50am");
    EXPECT_EQ (timeIn ({ 2027, 0, 3, 12, 5, 9 }), "3 Jan 2027 12:05:09pm");
    EXPECT_EQ (timeIn ({ 2027, 0, 3, 0, 5, 9 }), "3 Jan 2027 12:05:09am");
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

/** A driver with figures that differ from row to row. */
struct FilledDriver
{
    FilledDriver (const TestMachine& machine, const std::string& name, std::uint32_t flags)
        : driver (machine, { .name = name, .capabilities = makeCapabilities (flags), .uniqueName = name + '\0' })
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

struct StatisticsReportTests : public testing::Test
{
    const juce::Time time { 2026, 10, 19, 2, 47, 50 };

    static void expectGold (const juce::String& text, const juce::String& name)
    {
        const juce::TemporaryFile temporary (".txt");
        temporary.getFile().appendText (text, false, false);
        EXPECT_TRUE (temporary.getFile().hasIdenticalContentTo (juce::File (QUENDEL_GOLD_FOLDER).getChildFile (name)))
            << name << " differs from\n"
            << text;
    }
};

TEST_F (StatisticsReportTests, reportsEqualTheirGold)
{
    const std::vector<std::string> three { "PCI\\VEN_1&DEV_2\\3", "PCI\\VEN_4&DEV_5\\6", "PCI\\VEN_7&DEV_8\\9" };

    {
        const TestMachine machine;
        const FilledDriver plain (machine, "Deck", 0);
        DeviceList devices;
        Content content (devices);
        expectGold (content.makeReport (time), "statistics-no-controller.txt"); // before the first tick: no figures yet
    }

    {
        const TestMachine machine ({ three[0] });
        const FilledDriver full (machine, "Ger\xc3\xa4t \xce\xa9", dsp | fpga);
        DeviceList devices;
        Content content (devices);
        content.timerCallback();
        expectGold (content.makeReport (time), "statistics-one-controller.txt");
    }

    {
        const TestMachine machine (three);
        const FilledDriver one (machine, "A", dsp), other (machine, "B", fpga);
        DeviceList devices;
        Content content (devices);
        content.timerCallback();
        expectGold (content.makeReport (time), "statistics-three-controllers.txt");
    }
}

/** A section is about the device of its column, also when the list has moved on and the column not yet. */
TEST_F (StatisticsReportTests, sectionsKeepTheirFirmwareWhileTheListChanges)
{
    const TestMachine machine;
    const FilledDriver deck (machine, "a", dsp);
    DeviceList devices;
    Content content (devices);
    content.timerCallback();
    const auto before = content.makeReport (time);

    const FilledDriver other (machine, "b", fpga);
    ASSERT_TRUE (waitFor ([&] { return devices.getNumDevices() == 2; }));
    EXPECT_EQ (content.makeReport (time), before);
    devices.removeByPath (TestMachine::getInterfacePath ("a"));
    EXPECT_EQ (content.makeReport (time), before);
}

TEST_F (StatisticsReportTests, savesAppendAndTellHowThatWent)
{
    const TestMachine machine;
    const FilledDriver deck (machine, "a", dsp);
    DeviceList devices;
    Content content (devices);
    content.timerCallback();

    const juce::TemporaryFile home;
    const auto documents = home.getFile().getChildFile ("Documents");
    documents.createDirectory();
    const auto file = documents.getChildFile ("Quendel report.txt");
    const auto oldHome = juce::SystemStats::getEnvironmentVariable ("HOME", {});
    ::setenv ("HOME", home.getFile().getFullPathName().toRawUTF8(), 1);

    const auto report = content.makeReport (time).dropLastCharacters (2) + "\r\n\r\n";
    const auto withoutTimes = [] (const juce::String& text)
    {
        auto lines = juce::StringArray::fromTokens (text, "\n", "");

        for (int i = 0; i < lines.size(); ++i)
            if (lines[i] == "Quendel report\r")
                lines.remove (i + 1);

        return lines.joinIntoString ("\n");
    };

    const auto save = [&]
    {
        juce::String told;
        juce::Timer::callAfterDelay (
            100,
            [&told]
            {
                if (auto* box = dynamic_cast<juce::AlertWindow*> (juce::Component::getCurrentlyModalComponent()))
                {
                    told = box->getDescription();
                    box->triggerButtonClick ("OK");
                }
            });
        content.saveStatisticsReport();
        return told;
    };

    EXPECT_EQ (save(), "Quendel. Report saved to your documents folder.");
    EXPECT_EQ (withoutTimes (file.loadFileAsString()), withoutTimes (report));
    save();
    EXPECT_EQ (withoutTimes (file.loadFileAsString()), withoutTimes (report + report));

    // Once it is open, nothing counts as a failure, however long the report is.
    file.deleteFile();
    ASSERT_TRUE (juce::File ("/dev/full").createSymbolicLink (file, false));
    EXPECT_EQ (save(), "Quendel. Report saved to your documents folder.");
    EXPECT_TRUE (StatisticsReport::append (file, juce::String::repeatedString ("x", 100000)));

    file.deleteFile();
    file.createDirectory();
    EXPECT_EQ (save(), "Quendel. Unable to save report");
    home.getFile().deleteRecursively();
    EXPECT_EQ (save(), "Quendel. Unable to save report");
    ::setenv ("HOME", oldHome.toRawUTF8(), 1);
}

} // namespace
