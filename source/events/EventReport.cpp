#include "events/EventReport.h"

#include "device/Ticks.h"
#include "events/EventNames.h"

namespace EventReport
{

/** The parameter of an event that has none. */
static constexpr std::uint32_t noParam = 0xFFFFFFFF;

static constexpr int linesPerAppend = 256;

juce::String
    formatLine (int row, const EventRecord& event, const EventRecord& first, const juce::StringArray& deviceNames)
{
    const auto sinceFirst = Ticks::difference (event.timestamp, first.timestamp);

    auto line = juce::String::formatted ("%06d,", row);
    line << event.describeTicks ("%.3f", sinceFirst, EventRecord::toMilliseconds) << ","
         << event.describeTicks ("%.0f", event.timeDelta, EventRecord::toMicroseconds) << ",";

    if (event.param != noParam)
        line << deviceNames[event.deviceOrdinal] << juce::String::formatted (":%d", event.param);

    line << "," << EventNames::get (event.type) << "\r\n";
    return line;
}

void write (const juce::File& file,
            const juce::Array<EventRecord>& events,
            const juce::StringArray& deviceNames,
            const std::function<bool (double)>& progressTo)
{
    file.deleteFile();

    juce::String text;
    const auto first = events[0];
    const auto numRows = events.size();

    for (int row = 0; row < numRows && progressTo (static_cast<double> (row) / numRows); ++row)
    {
        text << formatLine (row, events.getReference (row), first, deviceNames);

        if (row % linesPerAppend == 0)
        {
            file.appendText (text, false, false);
            text.clear();
        }
    }

    file.appendText (text, false, false);
}

} // namespace EventReport
