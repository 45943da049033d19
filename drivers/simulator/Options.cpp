#include "drivers/simulator/Options.h"

#include "drivers/simulator/Orders.h"
#include "drivers/simulator/model/DeviceModel.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>

namespace Simulation
{

namespace
{
constexpr std::uint32_t defaultInterfaces = 2;
constexpr std::uint32_t maximumControllers = 64;

std::vector<std::string> splitList (const std::string& list)
{
    std::vector<std::string> items (1);

    for (const auto character : list)
    {
        if (character == ',')
            items.emplace_back();
        else
            items.back().push_back (character);
    }

    return items;
}

std::string parseNames (const std::string& list, Options& options)
{
    options.names = splitList (list);

    for (auto name = options.names.begin(); name != options.names.end(); ++name)
    {
        if (const auto error = checkName (*name); ! error.empty())
            return "--names: " + error;

        if (std::find (options.names.begin(), name, *name) != name)
            return "--names: " + *name + " is there twice";
    }

    if (options.names.size() > maximumInterfaces)
        return "--names: no more than " + std::to_string (maximumInterfaces);

    return {};
}

std::string parseControllers (const std::string& value, Options& options)
{
    options.controllers.clear();

    if (value.find_first_not_of ("0123456789") != std::string::npos)
    {
        options.controllers = splitList (value);
        return {};
    }

    std::uint32_t number = 0;

    if (! parseNumber (value, number) || number > maximumControllers)
        return "--controllers: a number from 0 to " + std::to_string (maximumControllers) + ", or ids";

    for (std::uint32_t i = 0; i < number; ++i)
    {
        char id[80];
        std::snprintf (id, sizeof (id), "PCI\\VEN_1394&DEV_0001&SUBSYS_00000000&REV_01\\3&%08X&0&08", i + 1);
        options.controllers.emplace_back (id);
    }

    return {};
}
} // namespace

std::string checkName (std::string_view name)
{
    const auto isAllowed = [] (char character) { return character > ' ' && character != ',' && character != 127; };

    // Bytes above 127 are parts of UTF-8 characters.
    const auto isAllowedByte = [isAllowed] (char character)
    { return isAllowed (character) || static_cast<unsigned char> (character) > 127; };

    if (name.empty() || name.size() > DeviceConfig::maximumNameLength)
        return "a name has 1 to " + std::to_string (DeviceConfig::maximumNameLength) + " bytes";

    if (! std::all_of (name.begin(), name.end(), isAllowedByte))
        return "a name has no spaces, commas or control characters";

    if (name == "all")
        return "\"all\" stands for every device and cannot be a name";

    return {};
}

std::string parseOptions (int numArguments, char* const* arguments, Options& options)
{
    const option known[] = { { "machine", required_argument, nullptr, 'm' },
                             { "interfaces", required_argument, nullptr, 'i' },
                             { "names", required_argument, nullptr, 'n' },
                             { "rate", required_argument, nullptr, 'r' },
                             { "buffer", required_argument, nullptr, 'b' },
                             { "seed", required_argument, nullptr, 's' },
                             { "controllers", required_argument, nullptr, 'c' },
                             { "help", no_argument, nullptr, 'h' },
                             { nullptr, 0, nullptr, 0 } };

    std::uint32_t numInterfaces = 0;
    auto isNumberGiven = false;

    if (auto error = parseControllers ("1", options); ! error.empty())
        return error;

    opterr = 0;
    optind = 0; // starts over, so that a process can read more than one command line

    for (;;)
    {
        const auto* argument = arguments[optind == 0 ? std::min (1, numArguments - 1) : optind];
        const auto letter = getopt_long (numArguments, arguments, ":h", known, nullptr);
        const std::string value = optarg != nullptr ? optarg : "";
        std::string error;

        if (letter == -1)
            break;

        switch (letter)
        {
            case 'm':
                options.machine = value;
                error = value.empty() ? "--machine: a folder" : "";
                break;

            case 'i':
                isNumberGiven = true;

                if (! parseNumber (value, numInterfaces) || numInterfaces > maximumInterfaces)
                    error = "--interfaces: a number from 0 to " + std::to_string (maximumInterfaces);

                break;

            case 'n':
                error = parseNames (value, options);
                break;

            case 'r':
                if (! parseNumber (value, options.sampleRate) || ! DeviceModel::isSampleRate (options.sampleRate))
                    error = "--rate: 22050 to 192000 Hz";

                break;

            case 'b':
                if (! parseNumber (value, options.bufferSize) || ! DeviceModel::isBufferSize (options.bufferSize))
                    error = "--buffer: 16 to 8192 samples";

                break;

            case 's':
                error = parseNumber (value, options.seed) ? "" : "--seed: a number";
                break;

            case 'c':
                error = parseControllers (value, options);
                break;

            case 'h':
                options.wantsHelp = true;
                break;

            case ':':
                error = std::string (argument) + " needs a value";
                break;

            default:
                error = std::string (argument) + ": no such option";
                break;
        }

        if (! error.empty())
            return error;
    }

    if (optind < numArguments)
        return std::string (arguments[optind]) + ": options only, please";

    if (! isNumberGiven)
        numInterfaces = options.names.empty() ? defaultInterfaces : static_cast<std::uint32_t> (options.names.size());

    if (options.names.size() > numInterfaces)
        return "more names than interfaces";

    options.names.resize (numInterfaces);
    return {};
}

std::string getHelpText()
{
    return "Usage: quendel-simulator [OPTION]...\n"
           "Plays the driver of FireWire audio interfaces in a machine folder, for Quendel to look at.\n"
           "\n"
           "  --machine DIR      the machine folder (default: $QUENDEL_MACHINE, else\n"
           "                     $XDG_RUNTIME_DIR/quendel-machine, else /tmp/quendel-machine-<user id>)\n"
           "  --interfaces N     interfaces to start with, 0 to 64 (default: one for each name, or 2)\n"
           "  --names A,B,...    their names, up to 63 bytes each\n"
           "  --rate HZ          their sample rate, 22050 to 192000 (default 48000)\n"
           "  --buffer SAMPLES   their buffer size, 16 to 8192 (default 256)\n"
           "  --seed N           what their behaviour is made from; the same number, the same behaviour (default 1)\n"
           "  --controllers N|ID,...\n"
           "                     host controllers, by number (default 1) or by their device-instance ids\n"
           "  --help             this text\n"
           "\n"
           "Prints \"serving N interfaces in DIR\" when it is ready. Then it reads orders from standard input, one\n"
           "a line, and answers each with one line, \"ok ...\" or \"error: ...\". DEV is a device's name, or\n"
           "\"all\". A wrong order changes nothing. Orders:\n"
           "\n"
           + getOrderHelp()
           + "\n"
             "REQUEST is stream-status, map-statistics, reset-statistics, event-entry, probe, read-counters,\n"
             "clear-counters, other, or open (with always or never).\n"
             "\n"
             "The end of standard input does not end it; quit, SIGINT and SIGTERM do. It then takes away the\n"
             "interfaces and whatever else it made. Exit code: 0, or 2 when it could not start.\n";
}

} // namespace Simulation
