#include "events/EventDisplayWindowContent.h"

static constexpr int stripHeight = 46;

EventDisplayWindowContent::EventDisplayWindowContent (const DeviceList& devices) : tabs (devices)
{
    addAndMakeVisible (tabs);

    saveButton.setColour (juce::TextButton::buttonColourId, juce::Colour (0, 200, 0));
    saveButton.addListener (this);
    saveButton.setSize (90, 26);
    addAndMakeVisible (saveButton);

    setSize (800, 600);
}

void EventDisplayWindowContent::paint (juce::Graphics& g)
{
    g.fillAll (juce::Colour (15, 15, 15));
}

void EventDisplayWindowContent::resized()
{
    tabs.setBounds (0, 0, getWidth(), getHeight() - stripHeight);
    saveButton.setCentrePosition (getWidth() / 2, getHeight() - stripHeight / 2);
}

bool EventDisplayWindowContent::keyPressed (const juce::KeyPress& key)
{
    using juce::KeyPress;
    using juce::ModifierKeys;

    const auto numTabs = tabs.getNumTabs();
    const auto isKey = [&] (int code, int modifiers) { return key == KeyPress (code, ModifierKeys (modifiers), 0); };
    const bool next = isKey (KeyPress::pageDownKey, ModifierKeys::ctrlModifier)
                      || isKey (KeyPress::tabKey, ModifierKeys::ctrlModifier);
    const bool previous = isKey (KeyPress::pageUpKey, ModifierKeys::ctrlModifier)
                          || isKey (KeyPress::tabKey, ModifierKeys::ctrlModifier | ModifierKeys::shiftModifier);

    if (numTabs == 0 || ! (next || previous))
        return false;

    tabs.setCurrentTabIndex ((tabs.getCurrentTabIndex() + (next ? 1 : numTabs - 1)) % numTabs);
    tabs.getCurrentContentComponent()->grabKeyboardFocus();
    return true;
}

void EventDisplayWindowContent::buttonClicked (juce::Button*)
{
    tabs.saveReport();
}
