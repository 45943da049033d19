#pragma once

#include "posix/FileDescriptor.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Machine
{

/** Waits for all that a driver process has to do, on one thread, until SIGINT or SIGTERM comes. */
class ServingLoop
{
public:
    /** The two signals end run() from now on and not the process, and SIGPIPE is ignored: make it before there is
        anything to leave behind, and before any other thread. */
    ServingLoop();

    /** Watches a descriptor.

        @param descriptor  not owned
        @param onReadable  called when there is something to read, or no more to come; returns false when the
                           descriptor is not to be watched any more
        @param rest        how seldom it is looked at while much comes
    */
    void add (int descriptor, std::function<bool()> onReadable, std::chrono::milliseconds rest = {});

    /** Runs until a signal comes.

        @param onTurn  called before every wait; returns how many milliseconds to wait at most (-1: for as long as
                       it takes), or nothing to end
    */
    void run (const std::function<std::optional<int>()>& onTurn);

private:
    struct Source
    {
        int descriptor;
        std::function<bool()> onReadable;
        std::chrono::milliseconds rest;
        std::chrono::steady_clock::time_point lastCall {}, restsUntil {};
    };

    FileDescriptor signals;
    std::vector<Source> sources;
};

/** Tells whoever started the driver that its machine folder is there: "serving " and the path, on standard output. */
void announceServing (const std::string& path);

} // namespace Machine
