#include "drivers/machine/CommandLine.h"

#include <getopt.h>

#include <cstdio>
#include <sstream>
#include <utility>

namespace Machine
{

/* Behind the options that the process itself has. */
static std::vector<CommandLine::Option> getAllOptions (const CommandLine& line, bool& wantsHelp)
{
    auto options = line.options;

    options.push_back ({ "machine",
                         "DIR",
                         "the machine folder (default: $QUENDEL_MACHINE, else $XDG_RUNTIME_DIR/quendel-machine, "
                         "else /tmp/quendel-machine-<user id>)",
                         [&line] (const std::string& value)
                         {
                             *line.machine = value;
                             return value.empty() ? "a folder" : "";
                         } });

    options.push_back ({ "help",
                         "",
                         "this text",
                         [&wantsHelp] (const std::string&)
                         {
                             wantsHelp = true;
                             return "";
                         } });

    return options;
}

std::string CommandLine::parse (int numArguments, char* const* arguments, bool& wantsHelp) const
{
    const auto all = getAllOptions (*this, wantsHelp);
    std::vector<::option> known;

    for (const auto& option : all)
        known.push_back ({ option.name.c_str(), option.value.empty() ? no_argument : required_argument, nullptr, 0 });

    known.push_back ({});
    opterr = 0;
    optind = 0; // starts over, so that a process can read more than one command line

    for (int index = 0;;)
    {
        switch (getopt_long (numArguments, arguments, ":", known.data(), &index))
        {
            case -1:
                return optind < numArguments ? std::string (arguments[optind]) + ": options only, please" : "";

            case 0:
            {
                const auto& option = all[static_cast<std::size_t> (index)];

                if (const auto error = option.take (optarg != nullptr ? optarg : ""); ! error.empty())
                    return "--" + option.name + ": " + error;

                break;
            }

            case ':':
                return std::string (arguments[optind - 1]) + " needs a value";

            default:
                return std::string (arguments[optind - 1]) + ": no such option";
        }
    }
}

std::optional<int> CommandLine::read (int numArguments, char* const* arguments) const
{
    auto wantsHelp = false;

    if (const auto error = parse (numArguments, arguments, wantsHelp); ! error.empty())
        return fail (error + "; try --help");

    if (! wantsHelp)
        return std::nullopt;

    std::fputs (getHelp().c_str(), stdout);
    return 0;
}

std::string CommandLine::getHelp() const
{
    auto text = "Usage: " + program + " [OPTION]...\n" + purpose + "\n";
    auto ignored = false;

    for (const auto& option : getAllOptions (*this, ignored))
        text += explain ("--" + option.name + (option.value.empty() ? "" : " ") + option.value, option.explanation);

    return text + "\n" + details;
}

void CommandLine::say (const std::string& text) const
{
    std::fprintf (stderr, "%s: %s\n", program.c_str(), text.c_str());
}

int CommandLine::fail (const std::string& reason) const
{
    say (reason);
    return 2;
}

std::string explain (const std::string& what, const std::string& explanation)
{
    constexpr std::size_t indent = 24, width = 100;
    auto line = "  " + what;
    std::string text;

    const auto beginLine = [&]
    {
        text += line + "\n";
        line.assign (indent - 1, ' ');
    };

    if (line.size() > indent - 2)
        beginLine();
    else
        line.resize (indent - 1, ' ');

    std::istringstream words (explanation);

    for (std::string word; words >> word; line += " " + word)
        if (line.size() + word.size() >= width)
            beginLine();

    return text + line + "\n";
}

} // namespace Machine
