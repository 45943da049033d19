#include "platform/linux/InterfaceWatcher.h"

#include "platform/linux/MachineFolder.h"
#include "protocol/MachineLayout.h"
#include <algorithm>
#include <array>
#include <cstring>
#include <sys/inotify.h>
#include <utility>

InterfaceWatcher& InterfaceWatcher::get()
{
    static InterfaceWatcher watcher;
    return watcher;
}

//==============================================================================
static int addWatch (const FileDescriptor& events, const FileDescriptor& folder)
{
    // Through the descriptor: what is watched is the folder whose owner was checked.
    const auto path = "/proc/self/fd/" + std::to_string (folder.get());
    return ::inotify_add_watch (events.get(),
                                path.c_str(),
                                IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
}

/** Watches machine/interfaces, and the machine folder in case interfaces/ itself comes or goes. The descriptor stays
   open as long as the process: whoever closes one, or was waiting for it then, has to wait until the kernel has tidied
   up behind all watches that have ended anywhere, and that takes seconds on a busy machine.
*/
void InterfaceWatcher::startWatching()
{
    stopWatching();

    if (! events)
        events = FileDescriptor (::inotify_init1 (IN_NONBLOCK | IN_CLOEXEC));

    const auto machine = MachineFolder::open();

    if (! events || ! machine)
        return;

    machineWatch = addWatch (events, machine);

    if (const auto interfaces = MachineFolder::openFolder (machine.get(), MachineLayout::interfacesFolder); interfaces)
        interfacesWatch = addWatch (events, interfaces);
}

void InterfaceWatcher::stopWatching()
{
    for (auto* watch : { &machineWatch, &interfacesWatch })
        if (const int ended = std::exchange (*watch, -1); ended >= 0)
            ::inotify_rm_watch (events.get(), ended);
}

void InterfaceWatcher::note (bool arrived, const std::string& name, std::vector<InterfaceChange>& changes)
{
    if (arrived ? known.insert (name).second : known.erase (name) > 0)
        changes.push_back ({ arrived, name });
}

/** For when changes were lost: every interface that was known went, every one that is there came. */
void InterfaceWatcher::startOver (std::vector<InterfaceChange>& changes)
{
    startWatching();

    for (const auto& name : std::set<std::string> (known))
        note (false, name, changes);

    for (const auto& name : MachineFolder::listInterfaces())
        note (true, name, changes);
}

std::vector<InterfaceChange> InterfaceWatcher::fetchChanges()
{
    const std::scoped_lock locked (lock);
    std::vector<InterfaceChange> changes;
    alignas (inotify_event) std::array<char, 16384> buffer;

    // Only some of what the kernel has queued, so that no storm of changes keeps us here.
    const auto size = std::max<ssize_t> (0, ::read (events.get(), buffer.data(), buffer.size()));

    for (std::size_t offset = 0; offset < static_cast<std::size_t> (size);)
    {
        inotify_event event;
        std::memcpy (&event, buffer.data() + offset, sizeof (event));

        const auto* text = buffer.data() + offset + sizeof (event);
        const std::string name (text, event.len > 0 ? ::strnlen (text, event.len) : 0);
        offset += sizeof (event) + event.len;

        // What is neither is about a watch that was.
        const bool isOfInterface = event.wd == interfacesWatch, isOfMachine = event.wd == machineWatch;

        if ((event.mask & IN_Q_OVERFLOW) != 0 || (isOfMachine && name == MachineLayout::interfacesFolder))
        {
            startOver (changes);
            continue;
        }

        if (isOfInterface && (event.mask & IN_ISDIR) != 0 && MachineFolder::isPresentName (name))
            note ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0, name, changes);
    }

    return changes;
}

//==============================================================================
void InterfaceWatcher::addListener()
{
    const std::scoped_lock locked (lock);

    if (listeners++ > 0)
        return;

    // In this order: what changes in between is reported, and changes nothing.
    startWatching();
    const auto names = MachineFolder::listInterfaces();
    known = { names.begin(), names.end() };
}

void InterfaceWatcher::removeListener()
{
    const std::scoped_lock locked (lock);

    if (--listeners == 0)
        stopWatching();
}

int InterfaceWatcher::getDescriptor()
{
    const std::scoped_lock locked (lock);
    return events.get();
}
