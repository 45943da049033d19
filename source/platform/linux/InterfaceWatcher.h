#pragma once

#include "posix/FileDescriptor.h"
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

/** Follows the machine folder's interfaces: tells of each that comes or goes while somebody listens, of one more than
    once only after the kernel has lost changes, and of nothing that was before. Any thread.
*/
class InterfaceWatcher
{
public:
    /** The process's one watcher. */
    static InterfaceWatcher& get();

    /** Somebody wants the changes from now on. */
    void addListener();

    /** Takes back one addListener; after the last one nothing is watched. */
    void removeListener();

    /** Changes since the last call, in order; the descriptor stays readable while there are more. */
    std::vector<InterfaceChange> fetchChanges();

    /** Readable when fetchChanges has something to do; -1 when the folder cannot be watched. */
    int getDescriptor();

private:
    void startWatching();
    void stopWatching();
    void note (bool arrived, const std::string& name, std::vector<InterfaceChange>& changes);
    void startOver (std::vector<InterfaceChange>& changes);

    std::mutex lock;
    FileDescriptor events;
    int machineWatch = -1;
    int interfacesWatch = -1;
    int listeners = 0;
    std::set<std::string> known;
};
