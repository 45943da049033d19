#include "events/SaveReportTask.h"

#include "events/EventReport.h"

namespace
{
/** Return has just named the file, perhaps twice, and must not cancel the report. Escape does. */
struct ReturnIgnored : public juce::KeyListener
{
    bool keyPressed (const juce::KeyPress& key, juce::Component*) override
    {
        return key.isKeyCode (juce::KeyPress::returnKey);
    }
};
} // namespace

SaveReportTask::SaveReportTask (const juce::File& reportFile,
                                const juce::Array<EventRecord>& eventsToWrite,
                                const juce::StringArray& namesOfDevices)
    : ThreadWithProgressWindow ("busy...", true, true, stopTimeoutMs, "Cancel"),
      file (reportFile),
      events (eventsToWrite),
      deviceNames (namesOfDevices)
{
    static ReturnIgnored returnIgnored;
    auto* window = getAlertWindow();
    window->addKeyListener (&returnIgnored);

    for (auto* child : window->getChildren())
        child->addKeyListener (&returnIgnored);
}

/** The thread must end before this part of the object does. */
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
