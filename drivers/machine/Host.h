#pragma once

#include "drivers/machine/InterfaceServer.h"
#include "drivers/machine/MachineFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace Machine
{

/** A machine folder and the interfaces that a driver process serves in it. Used by one thread at a time. */
class Host
{
public:
    /** @param newSuffix  with which the folder names of this driver's interfaces end, and no other driver's: it
                          knows by it what was left behind when it was killed */
    explicit Host (std::string newSuffix);

    Host (const Host&) = delete;
    Host& operator= (const Host&) = delete;

    /** Makes the folder; possible once.

        @param path         empty: the usual one; else its parent must exist
        @param controllers  device-instance ids of the machine's host controllers
        @returns            an empty string, or one line that says why it could not be done
    */
    std::string start (const std::string& path, const std::vector<std::string>& controllers);

    /** Makes an interface present and serves it from then on.

        @param server  not owned; to be given to retire(), or destroyed when it is served no more
        @returns       an empty string, or one line that says why it could not be done
    */
    std::string plugIn (InterfaceServer& server);

    /** When false, whatever is asked of the interface waits; it is served until this is said. */
    void setServing (InterfaceServer& server, bool shouldServe) const;

    /** Takes an interface that is not present any more, and serves it until its last client has left. */
    void retire (std::unique_ptr<InterfaceServer> server);

    /** Readable when serve() has something to do. Owned by the host. */
    int getDescriptor() const { return poller.get(); }

    /** Answers the requests that have come in. Does not wait. */
    void serve();

    const std::string& getPath() const { return folder.getPath(); }
    const std::string& getSuffix() const { return suffix; }

private:
    void removeLeftovers() const;

    const std::string suffix;
    MachineFolder folder; // goes after the interfaces in it
    FileDescriptor poller;
    std::vector<std::unique_ptr<InterfaceServer>> departed; // still connected
};

} // namespace Machine
