#include "stats/StatisticsReport.h"

namespace StatisticsReport
{

/** Ends every line of the report. */
static constexpr auto lineEnd = "\r\n";

juce::String formatFirmwareVersion (std::uint32_t version)
{
    auto text = juce::String::formatted ("%d.%d", version >> 24, version >> 16 & 0xff);

    for (const auto part : { version >> 8 & 0xff, version >> 4 & 0x0f })
        if (part != 0)
            text << "." << juce::String (part);

    return text;
}

void appendDevice (juce::String& text,
                   const juce::String& name,
                   const HwInfoCaps& caps,
                   const std::array<juce::String, StatisticsLayout::numRows>& texts)
{
    using namespace StatisticsLayout;

    const auto addVersion = [&] (const char* code, std::uint32_t version)
    { text << code << formatFirmwareVersion (version) << lineEnd; };

    const auto addFigure = [&] (std::size_t row)
    {
        constexpr int figuresColumn = 31;
        const auto label = "   " + juce::String (rows[row].reportLabel) + ":";
        text << label.paddedRight (' ', figuresColumn) << texts[row] << lineEnd;
    };

    text << name << lineEnd;
    addVersion ("ARM code: ", caps.getArmVersion());

    if (caps.hasDsp())
        addVersion ("DSP code: ", caps.getDspVersion());

    if (caps.hasFpga())
        addVersion ("FPGA code: ", caps.getFpgaVersion());

    text << lineEnd;

    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].kind == RowKind::blank)
            text << lineEnd;
        else if (rows[row].isItem() && ! rows[row].isOfFirmware())
            addFigure (row);

    // Of the firmware's figures the report has these two, the other way round than the view.
    addFigure (findRow (RowKind::eventCount, DriverProtocol::underrunsWord));
    addFigure (findRow (RowKind::eventCount, DriverProtocol::overflowsWord));
    text << lineEnd << lineEnd;
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
    text << deviceSections;

    // The writer makes line ends of these two.
    return text + "\n\n";
}

bool append (const juce::File& file, const juce::String& report)
{
    juce::FileOutputStream stream (file);
    const bool isOpen = stream.openedOk(); // asked again after an error, it would say no

    if (isOpen)
        stream.writeText (report, false, false, lineEnd);

    return isOpen;
}

} // namespace StatisticsReport
