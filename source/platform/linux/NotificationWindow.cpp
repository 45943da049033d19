#include "platform/NotificationWindow.h"

#include "platform/linux/MachineFolder.h"
#include "protocol/MachineLayout.h"
#include <array>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

namespace
{

/** The process's one watch over the machine folder. Never closed: that takes the kernel seconds on a busy machine. */
struct FolderWatch
{
    static FolderWatch& get()
    {
        static auto& watch = *new FolderWatch;
        return watch;
    }

    void tell (std::atomic<bool>& what) const
    {
        what = true;
        ::eventfd_write (wakeUp.get(), 1);
    }

    int watch (const FileDescriptor& folder) const
    {
        // Through the descriptor: this is the folder whose owner was checked.
        const auto path = "/proc/self/fd/" + std::to_string (folder.get());
        constexpr auto contents = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
        return folder ? ::inotify_add_watch (events.get(), path.c_str(), contents | ownEnd | IN_ONLYDIR) : -1;
    }

    /** Watches interfaces/, and the machine folder in case interfaces/ itself comes or goes; while there is no machine
        folder, the one that it is to be in. What was watched before and still is has lost nothing.
    */
    void startWatching()
    {
        std::array<int, 4> before { machineWatch, interfacesWatch, parentWatch };
        machineWatch = interfacesWatch = -1;

        // In this order: a folder that is made in between is not missed.
        parentWatch = before.back() = watch (MachineFolder::openParent());

        if (const auto machine = MachineFolder::open(); machine)
        {
            parentWatch = -1;
            machineWatch = watch (machine);
            interfacesWatch = watch (MachineFolder::openFolder (machine.get(), MachineLayout::interfacesFolder));
        }

        for (const int number : before)
            if (number != machineWatch && number != interfacesWatch && number != parentWatch)
                ::inotify_rm_watch (events.get(), number);
    }

    /** Passes on what has happened; of very much, only some. */
    void fetchChanges (const NotificationWindow::Receiver& receiver)
    {
        alignas (inotify_event) std::array<char, 16384> buffer;
        const auto size = ::read (events.get(), buffer.data(), buffer.size());

        for (ssize_t offset = 0; offset < size;)
        {
            const auto& event = *reinterpret_cast<const inotify_event*> (buffer.data() + offset);
            const std::string name (event.len > 0 ? event.name : "");
            offset += static_cast<ssize_t> (sizeof (event) + event.len);

            // An event of no present watch belongs to a former one.
            const bool isOfMachine = event.wd == machineWatch, arrived = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;

            if ((event.mask & IN_Q_OVERFLOW) != 0 || (isOfMachine && (event.mask & ownEnd) != 0)
                || (isOfMachine && name == MachineLayout::interfacesFolder)
                || (event.wd == parentWatch && name == MachineFolder::getName()))
                tell (lost);
            else if (event.wd == interfacesWatch && (event.mask & IN_ISDIR) != 0 && MachineFolder::isPresentName (name))
                send (receiver, arrived ? DBT_DEVICEARRIVAL : DBT_DEVICEREMOVECOMPLETE, name);
        }
    }

    /** As Windows tells it. */
    static void send (const NotificationWindow::Receiver& receiver, WPARAM change, const std::string& name)
    {
        const auto path = MachineLayout::pathPrefix + name;
        std::array<DEV_BROADCAST_DEVICEINTERFACE_A, 16> storage {}; // a name has 255 bytes at most
        storage[0].dbcc_size = sizeof (storage);
        storage[0].dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
        std::memcpy (reinterpret_cast<char*> (storage.data()) + offsetof (DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name),
                     path.c_str(),
                     path.size() + 1);
        receiver (WM_DEVICECHANGE, change, reinterpret_cast<LPARAM> (storage.data()));
    }

    static constexpr std::uint32_t ownEnd = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

    const FileDescriptor wakeUp { ::eventfd (0, EFD_NONBLOCK | EFD_CLOEXEC) };
    const FileDescriptor events { ::inotify_init1 (IN_NONBLOCK | IN_CLOEXEC) };
    std::atomic<bool> closing { false }, starting { false }, lost { false };
    int machineWatch = -1, interfacesWatch = -1, parentWatch = -1; // the thread's
};

} // namespace

namespace NotificationWindow
{

void run (std::atomic<HWND>& window, const Receiver& receiver)
{
    auto& watch = FolderWatch::get();
    watch.closing = false;
    window.store (reinterpret_cast<HWND> (&watch));

    while (! watch.closing)
    {
        const bool isLost = watch.lost.exchange (false);

        if (watch.starting.exchange (false) || isLost)
        {
            watch.startWatching();
            receiver (changesMissed, isLost ? 1 : 0, 0);
        }

        watch.fetchChanges (receiver);

        std::array<pollfd, 2> sources { { { watch.wakeUp.get(), POLLIN, 0 }, { watch.events.get(), POLLIN, 0 } } };
        ::poll (sources.data(), sources.size(), -1);
        eventfd_t count = 0;
        ::eventfd_read (watch.wakeUp.get(), &count);
    }
}

void close (HWND)
{
    FolderWatch::get().tell (FolderWatch::get().closing);
}

HDEVNOTIFY registerInterfaces (HWND window, const GUID&)
{
    FolderWatch::get().tell (FolderWatch::get().starting);
    return reinterpret_cast<HDEVNOTIFY> (window);
}

/** Drops what still arrives: its receiver is gone. */
void unregisterInterfaces (HDEVNOTIFY) {}

} // namespace NotificationWindow
