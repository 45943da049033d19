#include "device/CDevChangeNotify.h"

#include "device/DeviceChangeMessage.h"
#include "device/DeviceList.h"
#include "device/DriverText.h"
#include "device/Win32NotificationWindow.h"

/** Asks, on the notification thread, for a look at what changed before the notifications started; lParam names the
    notifier that is to look.
*/
static constexpr UINT catchUpMessage = WM_APP;

CDevChangeNotify::CDevChangeNotify (const GUID& interfaceClass,
                                    DeviceList& devicesToUpdate,
                                    juce::MessageListener* firstListener)
    : devices (devicesToUpdate),
      listener (firstListener)
{
    Win32NotificationWindow::addListener (this);

    DEV_BROADCAST_DEVICEINTERFACE_A filter {};
    filter.dbcc_size = sizeof (filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = interfaceClass;

    const auto window = Win32NotificationWindow::getWindowHandle();
    registration = RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);

    if (registration != nullptr && firstListener != nullptr)
        PostMessageA (window, catchUpMessage, 0, reinterpret_cast<LPARAM> (this));
}

CDevChangeNotify::~CDevChangeNotify()
{
    if (registration != nullptr)
        UnregisterDeviceNotification (registration);

    Win32NotificationWindow::removeListener (this);
}

//==============================================================================
void CDevChangeNotify::setListener (juce::MessageListener* newListener)
{
    const juce::ScopedLock locked (listenerPointerLock);
    listener = newListener;
}

bool CDevChangeNotify::hasListener() const
{
    const juce::ScopedLock locked (listenerPointerLock);
    return listener != nullptr;
}

/** Posts under the lock: a listener that is being detached right now must not be posted to afterwards. */
void CDevChangeNotify::post (DeviceChange change, const void* device)
{
    const juce::ScopedLock locked (listenerPointerLock);

    if (listener != nullptr)
        listener->postMessage (new DeviceChangeMessage (change, device));
}

//==============================================================================
void CDevChangeNotify::handleWin32Message (UINT message, WPARAM wParam, LPARAM lParam)
{
    if (lParam == 0 || ! hasListener())
        return;

    if (message == catchUpMessage && lParam == reinterpret_cast<LPARAM> (this))
        catchUp();

    if (message != WM_DEVICECHANGE)
        return;

    const auto* event = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_A*> (lParam);

    if (event->dbcc_devicetype == DBT_DEVTYP_HANDLE)
        followHandle (wParam, *reinterpret_cast<const DEV_BROADCAST_HANDLE*> (lParam));

    if (event->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE)
        return;

    const auto getPath = [event]
    {
        constexpr auto nameOffset = offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);
        const auto room = event->dbcc_size > nameOffset ? event->dbcc_size - nameOffset : 0;
        return textFromDriver (reinterpret_cast<const char*> (event) + nameOffset, room);
    };

    switch (wParam)
    {
        case DBT_DEVICEARRIVAL:
            deviceArrived (getPath());
            break;

        case DBT_DEVICEQUERYREMOVE:
        case DBT_DEVICEREMOVEPENDING:
            // One that the removal was made possible for cannot answer, and may yet stay.
            if (const auto device = devices.findByPath (getPath()); device != nullptr && device->isClosedForRemoval())
                break;

            [[fallthrough]];

        case DBT_DEVICEREMOVECOMPLETE:
            deviceMayHaveGone (getPath());
            break;

        default:
            break;
    }
}

/** Interfaces that came or went after the list was made and before the notifications started. */
void CDevChangeNotify::catchUp()
{
    const auto present = DeviceList::getPresentPaths();

    for (const auto& device : devices.getDevices())
        if (! present.contains (device->getPath(), true))
            deviceMayHaveGone (device->getPath());

    for (const auto& path : present)
        if (devices.findByPath (path) == nullptr)
            deviceArrived (path);
}

/** A device that left and came back can arrive while the list still holds it. If that one still answers, it is the
    same device, and it is not listed twice; if not, its removal went unnoticed and is made up for. One that the view
    has still to open has only just been found by catching up.
*/
void CDevChangeNotify::deviceArrived (const juce::String& path)
{
    const auto listed = devices.findByPath (path);

    if (listed != nullptr)
    {
        if (listed->isYetToBeOpened() || listed->probe() == 0)
            return;

        devices.removeByPath (path);
    }

    if (const auto device = devices.scan (&path); device != nullptr)
        post (DeviceArrivedMessage, device.get());
    else if (listed != nullptr)
        post (DeviceRemovedMessage, listed.get());
}

void CDevChangeNotify::deviceMayHaveGone (const juce::String& path)
{
    const auto device = devices.findByPath (path);

    if (device == nullptr || device->probe() == 0)
        return;

    devices.removeByPath (path);
    post (DeviceRemovedMessage, device.get());
}

/** That a device is gone is known from its interface. */
void CDevChangeNotify::followHandle (WPARAM event, const DEV_BROADCAST_HANDLE& notification)
{
    if (notification.dbch_size < offsetof (DEV_BROADCAST_HANDLE, dbch_eventguid))
        return;

    for (const auto& device : devices.getDevices())
    {
        if (event == DBT_DEVICEQUERYREMOVE)
            device->closeForRemoval (notification);
        else if (event == DBT_DEVICEQUERYREMOVEFAILED)
            device->openAfterRemovalFailed (notification);
    }
}
