#pragma once

#include "events/EventRecord.h"
#include <atomic>
#include <juce_gui_basics/juce_gui_basics.h>

/** Writes an event report on a worker thread behind a modal window with a progress bar and "Cancel".

    Owns nothing it is given; all of it outlives the task and stays as it is meanwhile. Message thread, but for run(),
    which is the worker's.
*/
class SaveReportTask : public juce::ThreadWithProgressWindow
{
public:
    SaveReportTask (const juce::File& reportFile,
                    const juce::Array<EventRecord>& eventsToWrite,
                    const juce::StringArray& namesOfDevices);

    ~SaveReportTask() override;

    /** Returns when the report is written, was cancelled, or the application quits; then the file holds whole
        lines and nobody writes to it any more.
    */
    void runModally();

    void run() override;
    void threadComplete (bool userPressedCancel) override;

private:
    static constexpr int stopTimeoutMs = 10000;

    const juce::File& file;
    const juce::Array<EventRecord>& events;
    const juce::StringArray& deviceNames;
    bool done = false;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (SaveReportTask)
};
