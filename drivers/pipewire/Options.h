#pragma once

#include "drivers/machine/CommandLine.h"

#include <string>
#include <vector>

namespace PipeWire
{

/** What quendel-pipewire is started with. */
struct Options
{
    std::string machine;              /**< Path of the machine folder; empty: the usual one. */
    std::vector<std::string> devices; /**< Names of the devices to serve; empty: by their kind. */
    bool servesAll = false;           /**< Every hardware or null device; else those on a FireWire bus. */
    bool servesClients = false;       /**< Besides, every client that works for one of them. */
};

/** What is read goes into these options, which have to stay where they are. */
Machine::CommandLine describeCommandLine (Options& options);

} // namespace PipeWire
