#include "events/EventTabs.h"

#include "device/DeviceList.h"
#include "events/EventList.h"
#include "events/EventReport.h"
#include "platform/NativeDialogs.h"
#include "text/DisplayText.h"

namespace
{
/** A tab whose name ends in dots where there is no room for all of it. It is called by the whole name, which one reads
    by pointing at it.
*/
class NamedTab : public juce::TabBarButton
{
public:
    NamedTab (const juce::String& wholeName, juce::TabbedButtonBar& bar)
        : TabBarButton (DisplayText::fromName (wholeName), bar),
          name (wholeName),
          bestLength (0)
    {
        setTitle (name);
        setTooltip (getButtonText());
    }

    /** The length for the whole name. */
    int getBestTabLength (int depth) override
    {
        if (bestLength == 0)
            bestLength = TabBarButton::getBestTabLength (depth);

        return bestLength;
    }

    void resized() override
    {
        TabBarButton::resized();

        constexpr int mostLetters = 200; // there is never room for more
        auto kept = name.substring (0, mostLetters);
        auto shown = DisplayText::fromName (name);

        while (! hasRoomFor (shown) && kept.isNotEmpty())
        {
            kept = kept.dropLastCharacters (1);
            shown = DisplayText::fromName (kept.trimEnd()) + "...";
        }

        setButtonText (shown);
    }

private:
    bool hasRoomFor (const juce::String& shown)
    {
        const auto area = getTextArea().toFloat();
        const auto font = getLookAndFeel().getTabButtonFont (*this, area.getHeight()).withHeight (area.getHeight() / 2);
        juce::GlyphArrangement line;
        line.addLineOfText (font, shown, 0, 0);
        return line.getBoundingBox (0, -1, true).getWidth() <= area.getWidth();
    }

    const juce::String name;
    int bestLength;
};
} // namespace

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

juce::TabBarButton* EventTabs::createTabButton (const juce::String& name, int)
{
    return new NamedTab (name, getTabbedButtonBar());
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

    // A quit closes the dialog, too, and its result is then not the user's choice.
    if (chosen && ! juce::MessageManager::getInstance()->hasStopMessageBeenSent())
        list->writeReport (chooser.getResult());
}
