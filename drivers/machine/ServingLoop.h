#pragma once

#include "posix/FileDescriptor.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Machine
{

/** The event loop of a driver process, on one thread, until SIGINT or SIGTERM comes. */
class ServingLoop
{
public:
    /** The two signals end run() from now on and not the process, and SIGPIPE is ignored: make it before there is
        anything to leave behind, and before any other thread. */
    ServingLoop();

    /** Watches a descriptor.

        @param getDescriptor  called before every wait; -1: there is nothing to watch now
        @param onReadable     called when there is something to read, or no more to come
    */
    void add (std::function<int()> getDescriptor, std::function<void()> onReadable);

    /** Runs until a signal comes.

        @param onTurn  called before every wait; returns how many milliseconds to wait at most (-1: for as long as
                       it takes), or nothing to end
    */
    void run (const std::function<std::optional<int>()>& onTurn);

private:
    struct Source
    {
        std::function<int()> getDescriptor;
        std::function<void()> onReadable;
    };

    FileDescriptor signals;
    std::vector<Source> sources;
};

/** Tells the caller of the driver that its machine folder is there: "serving " and the path, on standard output. */
void announceServing (const std::string& path);

} // namespace Machine
