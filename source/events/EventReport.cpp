#include "events/EventReport.h"

#include "events/EventNames.h"
#include "protocol/DriverProtocol.h"
#include "text/FixedNumber.h"

namespace EventReport
{

static constexpr int linesPerAppend = 256;

namespace
{
void appendFixed (juce::OutputStream& text, double value, int decimals)
{
    const FixedNumber number (value, decimals);
    text.write (number.getText().data(), number.getText().size());
}

void appendLine (juce::OutputStream& text,
                 int row,
                 const EventRecord& event,
                 const EventRecord& first,
                 const juce::StringArray& deviceNames)
{
    text << juce::String (row).paddedLeft ('0', 6);

    if (event.hasTime())
    {
        text << ',';
        appendFixed (text, event.msSince (first), 3);
        text << ',';
        appendFixed (text, event.timeDeltaUs(), 0);
        text << ',';
    }
    else
    {
        text << ",?,?,";
    }

    if (event.param != DriverProtocol::noParameter)
        text << deviceNames[event.deviceOrdinal] << ':' << static_cast<std::int32_t> (event.param);

    text << ',' << EventNames::get (event.type) << '\n';
}
} // namespace

juce::String getFileName (const juce::Time& time)
{
    const auto name = "Quendel event log " + time.toString (true, true, true, false) + ".txt";
    return juce::File::createLegalFileName (name.replaceCharacter (':', '_'));
}

/** Every line end becomes one of the report's, also within a name. */
static juce::String endLines (const juce::String& lines)
{
    juce::MemoryOutputStream text;
    text.writeText (lines, false, false, "\r\n");
    return text.toString();
}

juce::String getLine (const juce::Array<EventRecord>& events, int row, const juce::StringArray& deviceNames)
{
    juce::MemoryOutputStream line;
    appendLine (line, row, events[row], events[0], deviceNames);
    return endLines (line.toString());
}

/** Removes an earlier report. A file that cannot be deleted is emptied. */
static bool clear (const juce::File& file)
{
    if (file.deleteFile())
        return true;

    juce::FileOutputStream stream (file);
    return stream.openedOk() && stream.setPosition (0) && stream.truncate().wasOk();
}

/** @returns false unless all lines are in the file */
static bool appendLines (const juce::File& file, const juce::String& lines)
{
    // The toolkit's appendText reports no error: it writes the file when its buffer is destroyed.
    constexpr std::size_t noBuffer = 0;
    juce::FileOutputStream stream (file, noBuffer);
    return stream.openedOk() && stream.write (lines.toRawUTF8(), lines.getNumBytesAsUTF8());
}

void write (const juce::File& file,
            const juce::Array<EventRecord>& events,
            const juce::StringArray& deviceNames,
            const std::function<bool (double)>& progressTo)
{
    bool isIntact = clear (file);
    juce::MemoryOutputStream text;

    // No line may follow one that is missing.
    const auto appendText = [&]
    {
        isIntact = isIntact && appendLines (file, endLines (text.toString()));
        text.reset();
    };

    const auto first = events[0];
    const auto numRows = events.size();

    for (int row = 0; row < numRows && progressTo (static_cast<double> (row) / numRows); ++row)
    {
        appendLine (text, row, events.getReference (row), first, deviceNames);

        if (row % linesPerAppend == 0)
            appendText();
    }

    appendText();
}

} // namespace EventReport
