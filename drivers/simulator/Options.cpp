#include "drivers/simulator/Options.h"

#include "drivers/simulator/Orders.h"
#include "drivers/simulator/model/DeviceModel.h"

#include <algorithm>
#include <cstdio>

namespace Simulation
{

namespace
{
constexpr std::uint32_t defaultInterfaces = 2;
constexpr std::uint32_t maximumControllers = 64;

/** An option reads its value into the options; it returns an empty string, or what the value should have been. */
using Parse = std::string (*) (const std::string& value, Options& options);

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

std::string parseMachine (const std::string& value, Options& options)
{
    options.machine = value;
    return value.empty() ? "a folder" : "";
}

std::string parseInterfaces (const std::string& value, Options& options)
{
    std::uint32_t number = 0;

    if (! parseNumber (value, number) || number > maximumInterfaces)
        return "a number from 0 to " + std::to_string (maximumInterfaces);

    options.numInterfaces = number;
    return {};
}

std::string parseNames (const std::string& list, Options& options)
{
    options.names = splitList (list);

    for (auto name = options.names.begin(); name != options.names.end(); ++name)
    {
        if (auto error = checkName (*name); ! error.empty())
            return error;

        if (std::find (options.names.begin(), name, *name) != name)
            return *name + " is there twice";
    }

    return options.names.size() > maximumInterfaces ? "no more than " + std::to_string (maximumInterfaces) : "";
}

std::string parseRate (const std::string& value, Options& options)
{
    const auto valid = parseNumber (value, options.sampleRate) && DeviceModel::isSampleRate (options.sampleRate);
    return valid ? "" : "22050 to 192000 Hz";
}

std::string parseBuffer (const std::string& value, Options& options)
{
    const auto valid = parseNumber (value, options.bufferSize) && DeviceModel::isBufferSize (options.bufferSize);
    return valid ? "" : "16 to 8192 samples";
}

std::string parseSeed (const std::string& value, Options& options)
{
    return parseNumber (value, options.seed) ? "" : "a number";
}

std::string parseClock (const std::string& value, Options& options)
{
    options.isClockOrdered = value == "orders";
    return options.isClockOrdered || value == "real" ? "" : "real or orders";
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
        return "a number from 0 to " + std::to_string (maximumControllers) + ", or ids";

    for (std::uint32_t i = 0; i < number; ++i)
    {
        char id[80];
        std::snprintf (id, sizeof (id), "PCI\\VEN_1394&DEV_0001&SUBSYS_00000000&REV_01\\3&%08X&0&08", i + 1);
        options.controllers.emplace_back (id);
    }

    return {};
}
std::string askForHelp (const std::string&, Options& options)
{
    options.wantsHelp = true;
    return {};
}

struct Option
{
    std::string_view name;
    std::string_view value; // empty: it takes none
    std::string_view explanation;
    Parse parse;
};

constexpr Option known[] = {
    { "--machine",
      "DIR",
      "the machine folder (default: $QUENDEL_MACHINE, else\n"
      "$XDG_RUNTIME_DIR/quendel-machine, else /tmp/quendel-machine-<user id>)",
      parseMachine },
    { "--interfaces", "N", "interfaces to start with, 0 to 64 (default: one for each name, or 2)", parseInterfaces },
    { "--names", "A,B,...", "their names, up to 63 bytes each", parseNames },
    { "--rate", "HZ", "their sample rate, 22050 to 192000 (default 48000)", parseRate },
    { "--buffer", "SAMPLES", "their buffer size, 16 to 8192 (default 256)", parseBuffer },
    { "--seed", "N", "what their behaviour is made from; the same number, the same behaviour (default 1)", parseSeed },
    { "--clock", "real|orders", "whether time passes as everywhere (default) or only by order", parseClock },
    { "--controllers",
      "N|ID,...",
      "host controllers, by number (default 1) or by their device-instance ids",
      parseControllers },
    { "--help", "", "this text", askForHelp },
};

std::string describeOptions()
{
    const std::string indent (21, ' ');
    std::string text;

    for (const auto& option : known)
    {
        auto line = "  " + std::string (option.name).append (option.value.empty() ? "" : " ").append (option.value);

        if (line.size() < indent.size())
            line.resize (indent.size(), ' ');
        else
            line += "\n" + indent;

        for (const auto character : option.explanation)
            line += character == '\n' ? "\n" + indent : std::string (1, character);

        text += line + "\n";
    }

    return text;
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
    options.controllers.clear();
    parseControllers ("1", options);

    for (int i = 1; i < numArguments; ++i)
    {
        const std::string argument (arguments[i]);
        const auto name = argument.substr (0, argument.find ('='));
        const auto* option =
            std::find_if (std::begin (known), std::end (known), [&name] (const Option& o) { return o.name == name; });
        const auto isValueAttached = name.size() < argument.size();

        if (name.empty() || name[0] != '-')
            return argument + ": options only, please";

        if (option == std::end (known) || (option->value.empty() && isValueAttached))
            return argument + ": no such option";

        std::string value;

        if (isValueAttached)
            value = argument.substr (name.size() + 1);
        else if (! option->value.empty() && ++i == numArguments)
            return argument + " needs a value";
        else if (! option->value.empty())
            value = arguments[i];

        if (const auto error = option->parse (value, options); ! error.empty())
            return std::string (name).append (": ").append (error);
    }

    const auto numNames = static_cast<std::uint32_t> (options.names.size());
    const auto numInterfaces = options.numInterfaces.value_or (numNames > 0 ? numNames : defaultInterfaces);

    if (numNames > numInterfaces)
        return "more names than interfaces";

    options.names.resize (numInterfaces);
    return {};
}

std::string getHelpText()
{
    return "Usage: quendel-simulator [OPTION]...\n"
           "Plays the driver of FireWire audio interfaces in a machine folder, for Quendel to look at.\n"
           "\n"
           + describeOptions()
           + "\n"
             "Prints \"serving DIR\" when it is ready. Then it reads orders from standard input, one a line, and\n"
             "answers each with one line, \"ok ...\" or \"error: ...\". DEV is a device's name, or \"all\". A wrong\n"
             "order changes nothing. Orders:\n"
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
