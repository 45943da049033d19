#include "drivers/simulator/Options.h"

#include "drivers/simulator/Orders.h"
#include "drivers/simulator/model/DeviceModel.h"

#include <algorithm>
#include <cstdio>

namespace Simulation
{

namespace
{
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
    if (value.find_first_not_of ("0123456789") != std::string::npos)
    {
        options.controllers = splitList (value);
        return {};
    }

    std::uint32_t number = 0;

    if (! parseNumber (value, number) || number > maximumControllers)
        return "a number from 0 to " + std::to_string (maximumControllers) + ", or ids";

    options.controllers = makeControllers (number);
    return {};
}

std::string getDetails()
{
    std::string requests;

    for (const auto* name : DriverProtocol::requestNames)
        requests.append (name).append (", ");

    return R"(Prints "serving DIR" when it is ready. Then it reads orders from standard input, one a line, and answers
each with one line, "ok ..." or "error: ...". A wrong order changes nothing. Orders:

)" + getOrderHelp()
           + "\n" + Machine::explain ("DEV", "a device's name, or \"all\"")
           + Machine::explain ("REQUEST", requests + "or open (with always or never)") + R"(
The end of standard input does not end it; quit, SIGINT and SIGTERM do. It then takes away the interfaces and
whatever else it made. Exit code: 0, or 2 when it could not start.
)";
}
} // namespace

std::vector<std::string> makeControllers (std::uint32_t number)
{
    std::vector<std::string> ids;

    for (std::uint32_t i = 0; i < number; ++i)
    {
        char id[80];
        std::snprintf (id, sizeof (id), "PCI\\VEN_1394&DEV_0001&SUBSYS_00000000&REV_01\\3&%08X&0&08", i + 1);
        ids.emplace_back (id);
    }

    return ids;
}

std::string checkName (std::string_view name)
{
    // Bytes above 127 are parts of UTF-8 characters.
    const auto isAllowed = [] (unsigned char byte) { return byte > ' ' && byte != ',' && byte != 127; };

    if (name.empty() || name.size() > DeviceConfig::maximumNameLength)
        return "a name has 1 to " + std::to_string (DeviceConfig::maximumNameLength) + " bytes";

    if (! std::all_of (name.begin(), name.end(), isAllowed))
        return "a name has no spaces, commas or control characters";

    if (name == "all")
        return "\"all\" stands for every device and cannot be a name";

    return {};
}

Machine::CommandLine describeCommandLine (Options& options)
{
    const auto into = [&options] (std::string (*parse) (const std::string&, Options&))
    { return [&options, parse] (const std::string& value) { return parse (value, options); }; };

    return { .program = "quendel-simulator",
             .purpose = "Plays the driver of FireWire audio interfaces in a machine folder, for Quendel to look at.\n",
             .options = { { "interfaces",
                            "N",
                            "interfaces to start with, 0 to 64 (default: one for each name, or 2)",
                            into (parseInterfaces) },
                          { "names", "A,B,...", "their names, up to 63 bytes each", into (parseNames) },
                          { "rate", "HZ", "their sample rate, 22050 to 192000 (default 48000)", into (parseRate) },
                          { "buffer", "SAMPLES", "their buffer size, 16 to 8192 (default 256)", into (parseBuffer) },
                          { "seed",
                            "N",
                            "what their behaviour is made from; the same number, the same behaviour (default 1)",
                            into (parseSeed) },
                          { "clock",
                            "real|orders",
                            "whether time passes as everywhere (default) or only by order",
                            into (parseClock) },
                          { "controllers",
                            "N|ID,...",
                            "host controllers, by number (default 1) or by their device-instance ids",
                            into (parseControllers) } },
             .details = getDetails(),
             .machine = &options.machine };
}

} // namespace Simulation
