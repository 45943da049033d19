#include "stats/StatisticsReport.h"

namespace StatisticsReport
{

juce::String formatFirmwareVersion (std::uint32_t version)
{
    auto text = juce::String::formatted ("%d.%d", version >> 24, version >> 16 & 0xff);

    for (const auto part : { version >> 8 & 0xff, version >> 4 & 0x0f })
        if (part != 0)
            text << "." << juce::String (part);

    return text;
}

juce::String make (const juce::Time& time,
                   const juce::StringArray& controllers,
                   std::uint32_t sampleRate,
                   std::uint32_t bufferSize,
                   const juce::String& bufferTime,
                   const juce::String& deviceSections)
{
    juce::String text;
    text << juce::String::repeatedString ("-", 80) << lineEnd << "Quendel report" << lineEnd;
    text << time.toString (true, true, true, false) << lineEnd << lineEnd;

    if (controllers.size() == 1)
    {
        text << "1394 controller: " << controllers[0] << lineEnd;
    }
    else
    {
        text << "1394 controllers: " << controllers.size() << lineEnd;

        for (const auto& id : controllers)
            text << "     " << id << lineEnd;
    }

    text << lineEnd;
    text << "Sample rate:              " << juce::String (sampleRate) << lineEnd;
    text << "Buffer size:              " << juce::String (bufferSize) << lineEnd;
    text << "Nominal buffer time:      " << bufferTime << lineEnd << lineEnd;
    text << deviceSections << lineEnd << lineEnd;
    return text;
}

bool append (const juce::File& file, const juce::String& report)
{
    juce::FileOutputStream stream (file);
    const bool isOpen = stream.openedOk(); // after an error it would return false

    if (isOpen)
        stream.writeText (report, false, false, lineEnd);

    return isOpen;
}

} // namespace StatisticsReport
