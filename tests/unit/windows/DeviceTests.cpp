#include "device/DeviceList.h"

#include <gtest/gtest.h>

namespace
{

/** With the test bus behind the system's calls, where "Tamrix-1" and "Zażółć" are plugged in. */
TEST (WindowsDeviceTests, theLogHasWholeNames)
{
    struct Sink : public DeviceList::LogSink
    {
        void logMessage (const juce::String& line) override { lines.add (line); }
        juce::StringArray lines;
    };

    Sink sink;
    const DeviceList logged (0, nullptr, nullptr, &sink);
    EXPECT_TRUE (sink.lines[0].startsWith ("Found device Tamrix-1  vendor:0xc3f1  type:0x")) << sink.lines[0];
    EXPECT_TRUE (
        sink.lines.joinIntoString ("|").contains (juce::String (L"Found device Za\u017c\u00f3\u0142\u0107  vendor")));
}

} // namespace
