#include "events/SaveReportTask.h"

#include "events/EventReport.h"

SaveReportTask::SaveReportTask (const juce::File& reportFile,
                                const juce::Array<EventRecord>& eventsToWrite,
                                const juce::StringArray& namesOfDevices)
    : ThreadWithProgressWindow ("busy...", true, true, stopTimeoutMs, "Cancel"),
      file (reportFile),
      events (eventsToWrite),
      deviceNames (namesOfDevices)
{
}

/** The thread must be over before this part of the object is. */
SaveReportTask::~SaveReportTask()
{
    stopThread (stopTimeoutMs);
}

/** The toolkit's own runThread() never returns once the application has been told to quit. */
void SaveReportTask::runModally()
{
    constexpr int dispatchMs = 5;
    launchThread();

    while (! done && juce::MessageManager::getInstance()->runDispatchLoopUntil (dispatchMs))
    {
    }
}

void SaveReportTask::threadComplete (bool)
{
    done = true;
}

void SaveReportTask::run()
{
    EventReport::write (file,
                        events,
                        deviceNames,
                        [this] (double share)
                        {
                            if (threadShouldExit())
                                return false;

                            setProgress (share);
                            return true;
                        });
}
