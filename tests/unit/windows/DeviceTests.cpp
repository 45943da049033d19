#include "device/DeviceList.h"
#include "device/HostControllerList.h"
#include "platform/AccessGuard.h"
#include "stats/StatisticsBlock.h"

#include <gtest/gtest.h>

/* The system's calls with the test bus behind them. scripts/test-windows has plugged in "Tamrix-1" (slot 0, an event
   log of 100 entries) and "Zażółć" (slot 1, of 300). */

namespace
{

struct WindowsDeviceTests : public testing::Test
{
    DeviceList devices;

    HwDevice::Ptr find (int slot)
    {
        return devices.findByPath ("\\\\?\\TESTBUS#TAMRIX#000" + juce::String (slot + 1)
                                   + "#{7BE5A0C4-2F1D-4D0E-9A6B-51D7C308E294}");
    }

    HwDevice::Ptr opened (int slot)
    {
        const auto device = find (slot);
        EXPECT_NE (device, nullptr);
        EXPECT_EQ (device->open(), 0);
        return device;
    }

    static const void* blockOf (const HwDevice& device)
    {
        return reinterpret_cast<const void*> (static_cast<std::uintptr_t> (device.getStatisticsAddress()));
    }

    /** The playback average where the driver keeps it, or -1 after a fault. */
    static std::int64_t readAverage (const void* block)
    {
        std::int64_t average = -1;
        AccessGuard::readBlock (block,
                                [&] (const AccessGuard::BlockReader& reader)
                                { average = reader.read<std::int64_t> (offsetof (StatisticsBlock, playbackAverage)); });
        return average;
    }
};

TEST_F (WindowsDeviceTests, theListHoldsEveryPresentInterface)
{
    EXPECT_EQ (devices.getNumDevices(), 2);
    ASSERT_NE (find (0), nullptr);
    ASSERT_NE (find (1), nullptr);
    EXPECT_EQ (find (0)->getName(), "Tamrix-1");
}

TEST_F (WindowsDeviceTests, theRegistryHasNameAndCapabilities)
{
    const auto first = find (0), second = find (1);
    ASSERT_NE (first, nullptr);
    ASSERT_NE (second, nullptr);
    EXPECT_EQ (second->getName(), juce::String (L"Za\u017c\u00f3\u0142\u0107"));
    EXPECT_TRUE (first->getCaps().hasDsp());
    EXPECT_FALSE (second->getCaps().hasDsp());
    EXPECT_EQ (first->getVendorId(), 0x00C3F1u);
    EXPECT_EQ (first->getCaps().getArmVersion(), 0x0003000Bu);
    EXPECT_EQ (first->getCaps().getNumProbeWords(), 16u);
}

TEST_F (WindowsDeviceTests, theLogHasWholeNames)
{
    struct Sink : public DeviceList::LogSink
    {
        void logMessage (const juce::String& line) override { lines.add (line); }
        juce::StringArray lines;
    };

    Sink sink;
    const DeviceList logged (0, nullptr, nullptr, &sink);
    EXPECT_TRUE (sink.lines[0].startsWith ("Found device Tamrix-1  vendor:0xc3f1  type:0x")) << sink.lines[0];
}

TEST_F (WindowsDeviceTests, requestsAreAnswered)
{
    const auto device = opened (0);
    EXPECT_EQ (device->readStreamStatus(), 0);
    EXPECT_EQ (device->getSampleRate(), 48000u);
    EXPECT_EQ (device->getBufferSize(), 256u);
    EXPECT_EQ (device->probe(), 0);

    FirmwareCounters counters;
    EXPECT_EQ (device->readFirmwareCounters (counters), 0);
    EXPECT_GT (counters.fifoLevel, 0u);
}

TEST_F (WindowsDeviceTests, theEventLogHasAnEnd)
{
    const auto device = opened (1);
    DriverProtocol::EventLogEntry entry {};
    EXPECT_EQ (device->readEventEntry (299, entry), 0);
    EXPECT_NE (entry.type, DriverProtocol::noSuchEntry);
    EXPECT_EQ (device->readEventEntry (300, entry), 0);
    EXPECT_EQ (entry.type, DriverProtocol::noSuchEntry);
}

TEST_F (WindowsDeviceTests, theStatisticsAreReadableWhileTheDeviceIsOpen)
{
    constexpr std::int64_t lowest = 53'000, highest = 54'000; // 256 samples at 48 kHz, in 10 MHz ticks

    const auto device = opened (0);
    const auto* block = blockOf (*device);
    ASSERT_NE (block, nullptr);
    EXPECT_GT (readAverage (block), lowest);
    EXPECT_LT (readAverage (block), highest);

    device->close();

    // Wine tells the driver of a closed file when it gets to it.
    for (int i = 0; i < 500 && readAverage (block) != -1; ++i)
        Sleep (10);

    EXPECT_EQ (readAverage (block), -1);
}

TEST_F (WindowsDeviceTests, aClosedDeviceAnswersNothing)
{
    const auto device = opened (0);
    device->close();
    EXPECT_EQ (device->readStreamStatus(), 1);
    EXPECT_EQ (device->probe(), 1);
}

TEST_F (WindowsDeviceTests, theHostControllerIsListed)
{
    const HostControllerList controllers;
    ASSERT_EQ (controllers.size(), 1);
    EXPECT_EQ (controllers[0], "ROOT\\OHCI1394\\0000");
}

} // namespace
