#pragma once

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
    bool wantsHelp = false;
};

/** Reads the command line; returns an empty string, or one line that says what is wrong with it. */
std::string parseOptions (int numArguments, char* const* arguments, Options& options);

/** Everything that --help says. */
std::string getHelpText();

} // namespace PipeWire
