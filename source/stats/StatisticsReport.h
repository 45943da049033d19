#pragma once

#include <juce_core/juce_core.h>

/** The statistics report: what the main view shows at one moment, UTF-8 without a byte-order mark, CR LF line ends. */
namespace StatisticsReport
{

/** Ends every line. */
inline constexpr auto lineEnd = "\r\n";

/** A packed firmware version as text: two parts always, a third and a fourth where they are not 0.

    @param version  major, minor and third part in a byte each from the top, then the fourth in the upper half
                    of the lowest byte
*/
juce::String formatFirmwareVersion (std::uint32_t version);

/** One whole report.

    @param time            local time of the save
    @param controllers     ids of the host controllers
    @param sampleRate      Hz
    @param bufferSize      sample frames
    @param bufferTime      as it is shown
    @param deviceSections  what Column::appendReport has made of each device
*/
juce::String make (const juce::Time& time,
                   const juce::StringArray& controllers,
                   std::uint32_t sampleRate,
                   std::uint32_t bufferSize,
                   const juce::String& bufferTime,
                   const juce::String& deviceSections);

/** Appends a report to a file, which is made where there is none.
    @returns false when the file cannot be opened; later errors are not reported
*/
bool append (const juce::File& file, const juce::String& report);

} // namespace StatisticsReport
