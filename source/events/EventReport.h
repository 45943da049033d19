#pragma once

#include "events/EventRecord.h"
#include <functional>
#include <juce_core/juce_core.h>

/** The event report: one comma-separated line per event, UTF-8 without a byte-order mark, CR LF line ends. In a line
    are the row counted from 0, milliseconds since the first row, microseconds since the previous event in time,
    device:parameter, and the name.
*/
namespace EventReport
{

/** The name that is proposed for a report saved at that local time. */
juce::String getFileName (const juce::Time& time);

/** The line of one of the events in their present order. */
juce::String getLine (const juce::Array<EventRecord>& events, int row, const juce::StringArray& deviceNames);

/** Replaces the file by a report of the events in their present order; says nothing about how that went. Any thread.

    What cannot be written ends the file: nothing is appended to an earlier report, or behind lines that are missing.
    Line 0 is appended alone, then 256 lines at a time, each time with the file opened and closed, so that memory stays
    bounded and the file grows.

    @param progressTo  called before each line with the share written, 0 to 1; returning false ends the report
                       after the lines before it
*/
void write (const juce::File& file,
            const juce::Array<EventRecord>& events,
            const juce::StringArray& deviceNames,
            const std::function<bool (double)>& progressTo);

} // namespace EventReport
