#pragma once

#include "device/HwDevice.h"
#include "device/Win32MessageListener.h"
#include <juce_events/juce_events.h>

class DeviceList;
enum DeviceChange : int;

/** Keeps one DeviceList up to date with the device interfaces of one class that come and go, and tells the list's
    listener of it by a DeviceChangeMessage.

    Made, given its listener and destroyed on the message thread; the rest happens on the notification thread.
*/
class CDevChangeNotify final : public Win32MessageListener
{
public:
    /** Starts the notifications, and makes up for what came and went since the list was made. Without a notification
        window there are none, and nothing is said.
        @param devicesToUpdate   owns this object
        @param firstListener     as for setListener; given here, it misses nothing that happens at the start
    */
    CDevChangeNotify (const GUID& interfaceClass,
                      DeviceList& devicesToUpdate,
                      juce::MessageListener* firstListener = nullptr);

    /** After it returns, the list does not change and nothing is posted. */
    ~CDevChangeNotify();

    /** Replaces the listener; once it returns, nothing more is posted to the one before. Not owned, may be null:
        then notifications pass without touching the list.
    */
    void setListener (juce::MessageListener* newListener);

    void handleWin32Message (UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    void catchUp (bool listedMayBeOld);
    void deviceArrived (const juce::String& path);
    void deviceMayHaveGone (HwDevice& device);
    void followHandle (WPARAM event, const DEV_BROADCAST_HANDLE& notification);
    bool hasListener() const;
    void post (DeviceChange change, const void* device);

    HDEVNOTIFY registration = nullptr;
    DeviceList& devices;
    juce::MessageListener* listener;
    juce::CriticalSection listenerPointerLock; // innermost: we lock nothing else while we hold it

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (CDevChangeNotify)
};
