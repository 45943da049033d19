#include "stats/StatisticsReport.h"

#include "device/DeviceList.h"
#include "device/HostControllerList.h"
#include "platform/Surroundings.h"
#include "stats/Content.h"

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

//==============================================================================
void Column::appendReport (juce::String& text, const HwInfoCaps& caps) const
{
    using namespace StatisticsLayout;

    const auto addVersion = [&] (const char* code, std::uint32_t version)
    { text << code << formatFirmwareVersion (version) << lineEnd; };

    const auto add = [&] (const char* label, int row) { text << label << getText (row) << lineEnd; };

    text << name << lineEnd;
    addVersion ("ARM code: ", caps.getArmVersion());

    if (caps.hasDsp())
        addVersion ("DSP code: ", caps.getDspVersion());

    if (caps.hasFpga())
        addVersion ("FPGA code: ", caps.getFpgaVersion());

    text << lineEnd;
    add ("   Playback count:             ", playbackCount);
    add ("   Playback max time:          ", playbackMaximum);
    add ("   Playback average time:      ", playbackAverage);
    text << lineEnd;
    add ("   Record count:               ", recordCount);
    add ("   Record max time:            ", recordMaximum);
    add ("   Record average time:        ", recordAverage);
    text << lineEnd;
    add ("   ASIO wakeup max time:       ", wakeupMaximum);
    add ("   ASIO wakeup average time:   ", wakeupAverage);
    text << lineEnd;
    add ("   ASIO host max time:         ", hostMaximum);
    add ("   ASIO host average time:     ", hostAverage);
    text << lineEnd;
    add ("   Buffer offset max time:     ", offsetMaximum);
    add ("   Buffer offset min time:     ", offsetMinimum);
    add ("   Buffer offset average time: ", offsetAverage);
    text << lineEnd;
    add ("   Underruns:                  ", underruns);
    add ("   Overflows:                  ", overflows);
    text << lineEnd << lineEnd;
}

//==============================================================================
static void appendControllers (juce::String& text)
{
    const HostControllerList controllers;

    if (controllers.size() == 1)
    {
        text << "1394 controller: " << controllers[0] << lineEnd;
        return;
    }

    text << "1394 controllers: " << controllers.size() << lineEnd;

    for (const auto& id : controllers)
        text << "     " << id << lineEnd;
}

/** The writer turns the two closing line feeds into line ends. */
juce::String Content::makeReport (const juce::Time& time) const
{
    juce::String text;
    text << juce::String::repeatedString ("-", 80) << lineEnd << "Quendel report" << lineEnd;
    text << Surroundings::describeTime (time) << lineEnd << lineEnd;

    appendControllers (text);
    text << lineEnd;

    text << "Sample rate:              " << juce::String (sampleRate) << lineEnd;
    text << "Buffer size:              " << juce::String (bufferSize) << lineEnd;
    text << "Nominal buffer time:      " << bufferTimeLabel.getText() << lineEnd << lineEnd;

    for (int i = 0; i < columns.size(); ++i)
        columns[i]->appendReport (text, sources[static_cast<std::size_t> (i)].caps);

    return text + "\n\n";
}

/** Only a file that cannot be opened counts as a failure, which the toolkit's appendText cannot tell apart. */
static bool append (const juce::File& file, const juce::String& text)
{
    juce::FileOutputStream stream (file);

    if (stream.openedOk())
        stream.writeText (text, false, false, lineEnd);

    return stream.openedOk();
}

void Content::saveStatisticsReport()
{
    const auto text = makeReport (Surroundings::getCurrentTime());
    const bool opened = append (Surroundings::getDocumentsFolder().getChildFile ("Quendel report.txt"), text);

    juce::NativeMessageBox::showMessageBox (juce::MessageBoxIconType::NoIcon,
                                            "Quendel",
                                            opened ? "Report saved to your documents folder."
                                                   : "Unable to save report");
}
