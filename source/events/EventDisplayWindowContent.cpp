#include "events/EventDisplayWindowContent.h"

#include "events/EventList.h"
#include "text/InterfaceColours.h"

static constexpr int stripHeight = 46;

EventDisplayWindowContent::EventDisplayWindowContent (const DeviceList& devices) : tabs (devices)
{
    addAndMakeVisible (tabs);

    saveButton.setColour (juce::TextButton::buttonColourId, InterfaceColours::button);
    saveButton.addListener (this);
    saveButton.setSize (90, 26);
    saveButton.setHasFocusOutline (true);
    addAndMakeVisible (saveButton);

    addKeyListener (this);

    for (int i = 0; i < tabs.getNumTabs(); ++i)
        tabs.getTabContentComponent (i)->addKeyListener (this);

    setSize (800, 600);
}

void EventDisplayWindowContent::paint (juce::Graphics& g)
{
    g.fillAll (InterfaceColours::ground);
}

void EventDisplayWindowContent::resized()
{
    tabs.setBounds (0, 0, getWidth(), getHeight() - stripHeight);
    saveButton.setCentrePosition (getWidth() / 2, getHeight() - stripHeight / 2);
}

bool EventDisplayWindowContent::keyPressed (const juce::KeyPress& key, juce::Component*)
{
    using juce::KeyPress;
    using juce::ModifierKeys;

    // The toolkit's buttons know only Return.
    if (saveButton.hasKeyboardFocus (false) && key == KeyPress::spaceKey)
    {
        saveButton.triggerClick();
        return true;
    }

    auto* list = tabs.getCurrentList();

    if (list == nullptr)
        return false;

    const auto isKey = [&] (int code, int modifiers) { return key == KeyPress (code, ModifierKeys (modifiers), 0); };

    if (isKey ('c', ModifierKeys::ctrlModifier))
    {
        list->copySelectedRows();
        return true;
    }

    const bool next = isKey (KeyPress::pageDownKey, ModifierKeys::ctrlModifier)
                      || isKey (KeyPress::tabKey, ModifierKeys::ctrlModifier);
    const bool previous = isKey (KeyPress::pageUpKey, ModifierKeys::ctrlModifier)
                          || isKey (KeyPress::tabKey, ModifierKeys::ctrlModifier | ModifierKeys::shiftModifier);

    if (next || previous)
    {
        const auto numTabs = tabs.getNumTabs();
        tabs.setCurrentTabIndex ((tabs.getCurrentTabIndex() + (next ? 1 : numTabs - 1)) % numTabs);
        tabs.getCurrentList()->grabKeyboardFocus();
        return true;
    }

    const int column = static_cast<int> (key.getTextCharacter()) - '0';

    if (column < EventList::indexColumn || column > EventList::nameColumn)
        return false;

    // As a click on the header does.
    auto& header = list->getHeader();
    header.setSortColumnId (column, column != header.getSortColumnId() || ! header.isSortedForwards());
    return true;
}

juce::String EventDisplayWindowContent::Tips::getTipFor (juce::Component& component)
{
    const auto* list = component.findParentComponentOfClass<EventList>();

    if (list == nullptr || list->isCurrentlyBlockedByAnotherModalComponent())
        return TooltipWindow::getTipFor (component);

    return list->getTipAt (list->getMouseXYRelative());
}

/** Without a window manager, nobody else returns the keyboard after the dialog. */
void EventDisplayWindowContent::buttonClicked (juce::Button*)
{
    tabs.saveReport();
    saveButton.grabKeyboardFocus();
}
