#include "drivers/pipewire/Options.h"

#include <getopt.h>

namespace PipeWire
{

std::string parseOptions (int numArguments, char* const* arguments, Options& options)
{
    const option known[] = {
        { "all", no_argument, nullptr, 'a' },          { "clients", no_argument, nullptr, 'c' },
        { "device", required_argument, nullptr, 'd' }, { "machine", required_argument, nullptr, 'm' },
        { "help", no_argument, nullptr, 'h' },         { nullptr, 0, nullptr, 0 }
    };
    opterr = 0;
    optind = 0; // starts over, so that a process can read more than one command line

    for (;;)
    {
        switch (getopt_long (numArguments, arguments, ":h", known, nullptr))
        {
            case -1:
                return optind < numArguments ? std::string (arguments[optind]) + ": options only, please" : "";

            case 'a':
                options.servesAll = true;
                break;

            case 'c':
                options.servesClients = true;
                break;

            case 'd':
                options.devices.emplace_back (optarg);
                break;

            case 'm':
                options.machine = optarg;

                if (options.machine.empty())
                    return "--machine: a folder";

                break;

            case 'h':
                options.wantsHelp = true;
                break;

            case ':':
                return std::string (arguments[optind - 1]) + " needs a value";

            default:
                return std::string (arguments[optind - 1]) + ": no such option";
        }
    }
}

std::string getHelpText()
{
    return "Usage: quendel-pipewire [OPTION]...\n"
           "Measures a running PipeWire and serves its FireWire audio devices in a machine folder, for Quendel to "
           "look\n"
           "at.\n"
           "\n"
           "  --all              every hardware or null device, not only those on a FireWire bus\n"
           "  --clients          besides the devices, every client that works for one of them, with what it misses\n"
           "  --device NAME      the device of this name, whatever it is, and no others but those named like this;\n"
           "                     its device.name, device.description, node.name or node.description\n"
           "  --machine DIR      the machine folder (default: $QUENDEL_MACHINE, else\n"
           "                     $XDG_RUNTIME_DIR/quendel-machine, else /tmp/quendel-machine-<user id>)\n"
           "  --help             this text\n"
           "\n"
           "Prints \"serving DIR\" when the folder is there. PipeWire may start later, stop and start again: devices "
           "come\n"
           "and go with it. SIGINT and SIGTERM end it; it then takes away whatever it made. Exit code: 0, or 2 when "
           "it\n"
           "could not start.\n";
}

} // namespace PipeWire
