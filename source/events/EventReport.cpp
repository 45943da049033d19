#include "events/EventReport.h"

#include "events/EventNames.h"
#include "protocol/DriverProtocol.h"
#include <array>
#include <charconv>

namespace EventReport
{

static constexpr int linesPerAppend = 256;

namespace
{
/** Writes a number as printf does it in the C locale. The user's is in force at moments: the toolkit switches the whole
    process while it looks up the text of a key press.
*/
template <typename Number, typename... Format>
void append (juce::OutputStream& text, Number number, Format... format)
{
    std::array<char, 64> digits;
    const auto end = std::to_chars (digits.data(), digits.data() + digits.size(), number, format...).ptr;
    text.write (digits.data(), static_cast<std::size_t> (end - digits.data()));
}

/** This runs once for every event of a long log. */
void appendLine (juce::OutputStream& text,
                 int row,
                 const EventRecord& event,
                 const EventRecord& first,
                 const juce::StringArray& deviceNames)
{
    for (int next = 100000; next > 1 && row < next; next /= 10)
        text << '0';

    append (text, row);

    if (event.hasTime())
    {
        text << ',';
        append (text, event.msSince (first), std::chars_format::fixed, 3);
        text << ',';
        append (text, event.timeDeltaUs(), std::chars_format::fixed, 0);
        text << ',';
    }
    else
    {
        text << ",?,?,";
    }

    if (event.param != DriverProtocol::noParameter)
    {
        text << deviceNames[event.deviceOrdinal] << ':';
        append (text, static_cast<std::int32_t> (event.param));
    }

    text << ',' << EventNames::get (event.type) << "\r\n";
}
} // namespace

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

/** A line end within a name becomes one of the report's. */
static juce::StringArray withLineEnds (const juce::StringArray& names)
{
    juce::StringArray result;

    for (const auto& name : names)
    {
        juce::MemoryOutputStream text;
        text.writeText (name, false, false, "\r\n");
        result.add (text.toString());
    }

    return result;
}

/** False when the lines are not, or not all, in the file. */
static bool append (const juce::File& file, const juce::MemoryOutputStream& lines)
{
    // The toolkit's appendText hears of no error, as the file is written when its buffer goes.
    constexpr std::size_t noBuffer = 0;
    juce::FileOutputStream stream (file, noBuffer);
    return stream.openedOk() && stream.write (lines.getData(), lines.getDataSize());
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
        isIntact = isIntact && append (file, text);
        text.reset();
    };

    const auto names = withLineEnds (deviceNames);
    const auto first = events[0];
    const auto numRows = events.size();

    for (int row = 0; row < numRows && progressTo (static_cast<double> (row) / numRows); ++row)
    {
        appendLine (text, row, events.getReference (row), first, names);

        if (row % linesPerAppend == 0)
            appendText();
    }

    appendText();
}

} // namespace EventReport
