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

    // One format for three fields: this runs once for every event of a long log.
    auto line = event.frequency == 0
                    ? juce::String::formatted ("%06d,?,?,", row)
                    : juce::String::formatted ("%06d,%.3f,%.0f,",
                                               row,
                                               event.convertTicks (sinceFirst, EventRecord::toMilliseconds),
                                               event.convertTicks (event.timeDelta, EventRecord::toMicroseconds));

    if (event.param != noParam)
        line << deviceNames[event.deviceOrdinal] << ":" << static_cast<int> (event.param);

    line << "," << EventNames::get (event.type) << "\r\n";
    return line;
}

void write (const juce::File& file,
            const juce::Array<EventRecord>& events,
            const juce::StringArray& deviceNames,
            const std::function<bool (double)>& progressTo)
{
    file.deleteFile();

    juce::MemoryOutputStream text;
    const auto first = events[0];
    const auto numRows = events.size();

    for (int row = 0; row < numRows && progressTo (static_cast<double> (row) / numRows); ++row)
    {
        text << formatLine (row, events.getReference (row), first, deviceNames);

        if (row % linesPerAppend == 0)
        {
            file.appendText (text.toString(), false, false);
            text.reset();
        }
    }

    file.appendText (text.toString(), false, false);
}

} // namespace EventReport
