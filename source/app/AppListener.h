#pragma once

#include "device/DeviceChangeMessage.h"
#include <juce_gui_basics/juce_gui_basics.h>

/** Listens to the device list until the main view does: a device that leaves before then ends the program. */
class AppListener : public juce::MessageListener
{
public:
    void handleMessage (const juce::Message& message) override
    {
        if (DeviceChangeMessage::getChange (message) == DeviceRemovedMessage)
            juce::JUCEApplication::quit();
    }
};
