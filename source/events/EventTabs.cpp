#include "events/EventTabs.h"

#include "device/DeviceList.h"
#include "events/EventList.h"
#include "events/EventReport.h"
#include "platform/NativeDialogs.h"

/** The tab bar shows no tab without a name, which would leave a nameless device's events out of reach. */
static juce::String getTabName (const HwDevice& device)
{
    const auto name = device.getName();
    return name.isEmpty() ? "Unnamed device" : name;
}

EventTabs::EventTabs (const DeviceList& list) : TabbedComponent (juce::TabbedButtonBar::TabsAtTop)
{
    const auto devices = list.getDevices();

    for (int i = 0; i < static_cast<int> (devices.size()); ++i)
        addTab (getTabName (*devices[static_cast<std::size_t> (i)]),
                juce::Colours::white,
                new EventList (devices, i),
                true);

    if (devices.size() >= 2)
        addTab ("Aggregate", juce::Colours::cyan, new EventList (devices, -1), true);
}

EventTabs::~EventTabs()
{
    clearTabs();
}

void EventTabs::paint (juce::Graphics& g)
{
    g.fillAll (juce::Colours::white);
}

EventList* EventTabs::getCurrentList() const
{
    return dynamic_cast<EventList*> (getCurrentContentComponent());
}

void EventTabs::saveReport()
{
    auto* list = getCurrentList();

    if (list == nullptr)
        return;

    const auto documents = juce::File::getSpecialLocation (juce::File::userDocumentsDirectory);
    const auto proposed = documents.getChildFile (EventReport::getFileName (juce::Time::getCurrentTime()));
    juce::FileChooser chooser ("Save event report", proposed, "*.txt", true);

    const auto watch = NativeDialogs::attend();
    const bool chosen = chooser.browseForFileToSave (true);

    // A quit closes the dialog, too; what it then calls the choice is nobody's.
    if (chosen && ! juce::MessageManager::getInstance()->hasStopMessageBeenSent())
        list->writeReport (chooser.getResult());
}
