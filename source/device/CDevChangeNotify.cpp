#include "device/CDevChangeNotify.h"

#include "device/DeviceChangeMessage.h"
#include "device/DeviceList.h"
#include "device/DriverText.h"
#include "device/Win32NotificationWindow.h"
#include "platform/NotificationWindow.h"

CDevChangeNotify::CDevChangeNotify (const GUID& interfaceClass,
                                    DeviceList& devicesToUpdate,
                                    juce::MessageListener* firstListener)
    : devices (devicesToUpdate),
      listener (firstListener)
{
    Win32NotificationWindow::addListener (this);

    registration = NotificationWindow::registerInterfaces (Win32NotificationWindow::getWindowHandle(), interfaceClass);
}

CDevChangeNotify::~CDevChangeNotify()
{
    if (registration != nullptr)
        NotificationWindow::unregisterInterfaces (registration);

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

/** Posts under the lock: a listener that is being detached must get nothing afterwards. */
void CDevChangeNotify::post (DeviceChange change, const void* device)
{
    const juce::ScopedLock locked (listenerPointerLock);

    if (listener != nullptr)
        listener->postMessage (new DeviceChangeMessage (change, device));
}

//==============================================================================
void CDevChangeNotify::handleWin32Message (UINT message, WPARAM wParam, LPARAM lParam)
{
    if (! hasListener())
        return;

    if (message == NotificationWindow::changesMissed)
        catchUp (wParam != 0);

    if (message != WM_DEVICECHANGE || lParam == 0)
        return;

    const auto* event = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_A*> (lParam);

    if (event->dbcc_devicetype == DBT_DEVTYP_HANDLE)
        followHandle (wParam, *reinterpret_cast<const DEV_BROADCAST_HANDLE*> (lParam));

    if (event->dbcc_devicetype != DBT_DEVTYP_DEVICEINTERFACE)
        return;

    constexpr auto nameOffset = offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);
    const auto* name = reinterpret_cast<const char*> (event) + nameOffset;
    const auto room = event->dbcc_size > nameOffset ? event->dbcc_size - nameOffset : 0;
    const auto path = pathFromSystem ({ name, ::strnlen (name, room) });
    const auto device = devices.findInterface (path);

    switch (wParam)
    {
        case DBT_DEVICEARRIVAL:
            deviceArrived (path);
            break;

        case DBT_DEVICEQUERYREMOVE:
        case DBT_DEVICEREMOVEPENDING:
            // A device that was closed for its removal cannot answer, and may yet stay.
            if (device != nullptr && ! device->isClosedForRemoval())
                deviceMayHaveGone (*device);

            break;

        case DBT_DEVICEREMOVECOMPLETE:
            // A device that was found since then is not the one that has gone.
            if (device != nullptr && ! (device->isYetToBeOpened() && DeviceList::getPresentPaths().contains (path)))
                deviceMayHaveGone (*device);

            break;

        default:
            break;
    }
}

/** Changes that no notification tells of: those from after the list was made and before the notifications started, and
    what the system lost. Who came is listed before who went is not, so that the list is never empty in between.
*/
void CDevChangeNotify::catchUp (bool listedMayBeOld)
{
    const auto present = DeviceList::getPresentPaths();

    for (const auto& path : present)
        if (const auto listed = devices.findInterface (path); listed == nullptr || (listedMayBeOld && listed->isOpen()))
            deviceArrived (path);

    for (const auto& device : devices.getDevices())
        if (! present.contains (device->getPath()))
            deviceMayHaveGone (*device);
}

/** A device that left and came back can arrive while the list still holds it. If that one still answers, or is only
    silent, it is the same device, and it is not listed twice; if not, its removal went unnoticed and is made up for.
    One that the view has still to open has only just been found by catching up.
*/
void CDevChangeNotify::deviceArrived (const juce::String& path)
{
    const auto listed = devices.findInterface (path);

    if (listed != nullptr && (listed->isYetToBeOpened() || listed->probe() == 0 || listed->hasOutstandingRequest()))
        return;

    if (const auto device = devices.scan (&path, listed.get()); device != nullptr)
        post (DeviceArrivedMessage, device.get());
    else if (listed != nullptr)
        post (DeviceRemovedMessage, listed.get());
}

void CDevChangeNotify::deviceMayHaveGone (HwDevice& device)
{
    if (device.probe() == 0)
        return;

    devices.removeByPath (device.getPath());
    post (DeviceRemovedMessage, &device);
}

/** A device is gone when its interface is. */
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
