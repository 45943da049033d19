#pragma once

#include "platform/linux/FileDescriptor.h"
#include <mutex>
#include <set>
#include <string>
#include <vector>

/** An interface that appeared in the machine folder or vanished from it. */
struct InterfaceChange
{
    bool arrived = false;
    std::string name;
};

/** Follows the machine folder's interfaces, so that a caller is told of every one: either it was in the
    listing, or its arrival is reported, and more than once only after the kernel has lost changes.

    The watch starts before the first listing, and the listing is repeated until nothing changed during it.
    Any thread.
*/
class InterfaceWatcher
{
public:
    /** The process's one watcher. */
    static InterfaceWatcher& get();

    /** Lists the present interfaces. While nobody listens this is also what later changes are counted from. */
    std::vector<std::string> listInterfaces();

    /** Somebody wants the changes since the last listing (since now, if there was none). */
    void addListener();

    /** Takes back one addListener; after the last one nothing is watched. */
    void removeListener();

    /** Changes since the last call, in order; the descriptor stays readable while there are more. */
    std::vector<InterfaceChange> fetchChanges();

    /** Readable when fetchChanges has something to do; -1 when the folder cannot be watched. */
    int getDescriptor();

private:
    void startWatching();
    bool readEvents (std::vector<InterfaceChange>& changes);
    void note (bool arrived, const std::string& name, std::vector<InterfaceChange>& changes);
    void reportEverythingAgain (std::vector<InterfaceChange>& changes);

    std::mutex lock;
    FileDescriptor events;
    int interfacesWatch = -1;
    int listeners = 0;
    std::set<std::string> known;
};
