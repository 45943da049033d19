#include "drivers/pipewire/Options.h"

namespace PipeWire
{

Machine::CommandLine describeCommandLine (Options& options)
{
    const auto set = [] (bool& option)
    {
        return [&option] (const std::string&)
        {
            option = true;
            return "";
        };
    };

    const auto addDevice = [&options] (const std::string& name)
    {
        options.devices.push_back (name);
        return "";
    };

    return {
        .program = "quendel-pipewire",
        .purpose =
            R"(Measures a running PipeWire and serves its FireWire audio devices in a machine folder, for Quendel to look
at.
)",
        .options = { { "all",
                       "",
                       "every hardware or null device, not only those on a FireWire bus",
                       set (options.servesAll) },
                     { "clients",
                       "",
                       R"(besides the devices, every client that works for one of them: its cycles under Playback, its
                       longest waits (WAIT in pw-top) under ASIO wakeup, its work (BUSY) under ASIO host, the cycles
                       that it missed as underruns)",
                       set (options.servesClients) },
                     { "device",
                       "NAME",
                       R"(the device of this name, whatever it is, and no others but those named like this: its
                       device.name, device.description or device.nick, or the node.group, node.name or node.description
                       of nodes without a device)",
                       addDevice } },
        .details =
            R"(Prints "serving DIR" when the folder is there. PipeWire may start later, stop and start again: devices come
and go with it. Each xrun is a line on standard output, with the client that was late. Which devices are
served, and what is missing, stands on standard error; at start also what makes audio stutter on this
machine: data loops without real-time priority, limits that forbid it, governors that save power, interrupts
that a FireWire controller shares. SIGINT and SIGTERM end it; it then takes away whatever it made. Exit code:
0, or 2 when it could not start.
)",
        .machine = &options.machine
    };
}

} // namespace PipeWire
