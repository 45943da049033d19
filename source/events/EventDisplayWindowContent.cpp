#include "events/EventDisplayWindowContent.h"

static constexpr int stripHeight = 46;

EventDisplayWindowContent::EventDisplayWindowContent (const std::vector<HwDevice::Ptr>& devices) : tabs (devices)
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

void EventDisplayWindowContent::buttonClicked (juce::Button*)
{
    tabs.saveReport();
}
