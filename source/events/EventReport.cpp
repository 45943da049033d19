#include "events/EventReport.h"

#include "events/EventNames.h"

namespace EventReport
{

/** The parameter of an event that has none. */
static constexpr std::uint32_t noParam = 0xFFFFFFFF;

static constexpr int linesPerAppend = 256;

juce::String
    formatLine (int row, const EventRecord& event, const EventRecord& first, const juce::StringArray& deviceNames)
{
    // One format for three fields: this runs once for every event of a long log.
    auto line = event.hasTime()
                    ? juce::String::formatted ("%06d,%.3f,%.0f,", row, event.msSince (first), event.timeDeltaUs())
                    : juce::String::formatted ("%06d,?,?,", row);

    if (event.param != noParam)
        line << deviceNames[event.deviceOrdinal] << ":" << static_cast<int> (event.param);

    line << "," << EventNames::get (event.type) << "\r\n";
    return line;
}

juce::String getFileName (const juce::Time& time)
{
    const auto name = "Quendel event log " + time.toString (true, true, true, false) + ".txt";
    return juce::File::createLegalFileName (name.replaceCharacter (':', '_'));
}

/** Leaves nothing of an earlier report. A file that has to stay loses what is in it. */
static bool clear (const juce::File& file)
{
    if (file.deleteFile())
        return true;

    juce::FileOutputStream stream (file);
    return stream.openedOk() && stream.setPosition (0) && stream.truncate().wasOk();
}

/** False when the lines are not, or not all, in the file. */
static bool append (const juce::File& file, const juce::String& lines)
{
    juce::MemoryOutputStream bytes;
    bytes.writeText (lines, false, false, "\r\n");

    // The toolkit's appendText hears of no error, as the file is written when its buffer goes.
    constexpr std::size_t noBuffer = 0;
    juce::FileOutputStream stream (file, noBuffer);
    return stream.openedOk() && stream.write (bytes.getData(), bytes.getDataSize());
}

void write (const juce::File& file,
            const juce::Array<EventRecord>& events,
            const juce::StringArray& deviceNames,
            const std::function<bool (double)>& progressTo)
{
    bool isIntact = clear (file);
    juce::MemoryOutputStream text;

    // Behind lines that are missing there must be no others.
    const auto appendText = [&]
    {
        isIntact = isIntact && append (file, text.toString());
        text.reset();
    };

    const auto first = events[0];
    const auto numRows = events.size();

    for (int row = 0; row < numRows && progressTo (static_cast<double> (row) / numRows); ++row)
    {
        text << formatLine (row, events.getReference (row), first, deviceNames);

        if (row % linesPerAppend == 0)
            appendText();
    }

    appendText();
}

} // namespace EventReport
