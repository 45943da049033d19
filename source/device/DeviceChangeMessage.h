#pragma once

#include <juce_events/juce_events.h>

/** Values of DeviceChangeMessage::intParameter1. */
enum DeviceChange : int
{
    DeviceArrivedMessage = 0x51D70000,
    DeviceRemovedMessage = 0x51D70001
};

/** Tells the device list's listener, on the message thread, that the list has changed.

    The pointer is that of the device that came or went. By the time the message is delivered the device can be
    gone: it is not to be followed. Receivers go back to the list.
*/
struct DeviceChangeMessage : public juce::Message
{
    DeviceChangeMessage (DeviceChange change, const void* device) : intParameter1 (change), pointerParameter (device) {}

    /** The change that a message tells of, or 0 when it is of another kind. */
    static int getChange (const juce::Message& message)
    {
        const auto* change = dynamic_cast<const DeviceChangeMessage*> (&message);
        return change != nullptr ? change->intParameter1 : 0;
    }

    const int intParameter1;
    const void* const pointerParameter;
};
