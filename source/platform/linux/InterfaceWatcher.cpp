#include "platform/linux/InterfaceWatcher.h"

#include "platform/linux/MachineFolder.h"
#include <array>
#include <cstring>
#include <sys/inotify.h>

static constexpr char interfacesFolder[] = "interfaces";

InterfaceWatcher& InterfaceWatcher::get()
{
    static InterfaceWatcher watcher;
    return watcher;
}

//==============================================================================
static int addWatch (const FileDescriptor& events, const FileDescriptor& folder, std::uint32_t mask)
{
    // Through the descriptor: what is watched is the folder whose owner was checked.
    const auto path = "/proc/self/fd/" + std::to_string (folder.get());
    return ::inotify_add_watch (events.get(), path.c_str(), mask | IN_ONLYDIR);
}

/** Watches machine/interfaces, and the machine folder in case interfaces/ itself comes or goes. */
void InterfaceWatcher::startWatching()
{
    events = FileDescriptor (::inotify_init1 (IN_NONBLOCK | IN_CLOEXEC));
    interfacesWatch = -1;

    const auto machine = MachineFolder::open();

    if (! events || ! machine)
        return;

    addWatch (events, machine, IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE);

    if (const auto interfaces = MachineFolder::openFolder (machine.get(), interfacesFolder); interfaces)
        interfacesWatch = addWatch (events, interfaces, IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE);
}

void InterfaceWatcher::note (bool arrived, const std::string& name, std::vector<InterfaceChange>& changes)
{
    if (arrived ? known.insert (name).second : known.erase (name) > 0)
        changes.push_back ({ arrived, name });
}

/** For when changes were lost: every interface that was known went, every one that is there came. */
void InterfaceWatcher::reportEverythingAgain (std::vector<InterfaceChange>& changes)
{
    for (const auto& name : std::set<std::string> (known))
        note (false, name, changes);

    for (const auto& name : MachineFolder::listInterfaces())
        note (true, name, changes);
}

/** Takes in some of what the kernel has queued, so that no storm of changes keeps us here; true when there was any. */
bool InterfaceWatcher::readEvents (std::vector<InterfaceChange>& changes)
{
    alignas (inotify_event) std::array<char, 16384> buffer;
    const auto size = ::read (events.get(), buffer.data(), buffer.size());

    if (size <= 0)
        return false;

    for (std::size_t offset = 0; offset < static_cast<std::size_t> (size);)
    {
        inotify_event event;
        std::memcpy (&event, buffer.data() + offset, sizeof (event));

        const auto* text = buffer.data() + offset + sizeof (event);
        const std::string name (text, event.len > 0 ? ::strnlen (text, event.len) : 0);
        offset += sizeof (event) + event.len;

        if ((event.mask & IN_Q_OVERFLOW) != 0)
        {
            reportEverythingAgain (changes);
        }
        else if (event.wd == interfacesWatch)
        {
            if ((event.mask & IN_ISDIR) != 0 && MachineFolder::isPresentName (name))
                note ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0, name, changes);
        }
        else if (name == interfacesFolder)
        {
            startWatching();
            reportEverythingAgain (changes);
        }
    }

    return true;
}

//==============================================================================
std::vector<std::string> InterfaceWatcher::listInterfaces()
{
    const std::scoped_lock locked (lock);

    if (listeners > 0)
        return MachineFolder::listInterfaces();

    // A folder that changes all the time must not keep us here for ever.
    constexpr int maximumAttempts = 100;

    startWatching();
    std::vector<std::string> names;
    std::vector<InterfaceChange> seen;

    for (int i = 0; i < maximumAttempts; ++i)
    {
        names = MachineFolder::listInterfaces();

        if (! readEvents (seen))
            break;
    }

    known = { names.begin(), names.end() };
    return names;
}

void InterfaceWatcher::addListener()
{
    const auto watching = [this]
    {
        const std::scoped_lock locked (lock);
        return static_cast<bool> (events);
    }();

    if (! watching)
        listInterfaces();

    const std::scoped_lock locked (lock);
    ++listeners;
}

void InterfaceWatcher::removeListener()
{
    const std::scoped_lock locked (lock);

    if (--listeners == 0)
        events = {};
}

std::vector<InterfaceChange> InterfaceWatcher::fetchChanges()
{
    const std::scoped_lock locked (lock);
    std::vector<InterfaceChange> changes;
    readEvents (changes);
    return changes;
}

int InterfaceWatcher::getDescriptor()
{
    const std::scoped_lock locked (lock);
    return events.get();
}
