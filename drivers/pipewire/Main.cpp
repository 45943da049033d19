#include "drivers/machine/ServingLoop.h"
#include "drivers/pipewire/Driver.h"

#include <chrono>
#include <cstdio>

int main (int numArguments, char** arguments)
{
    constexpr int couldNotStart = 2;
    PipeWire::Options options;

    if (const auto error = PipeWire::parseOptions (numArguments, arguments, options); ! error.empty())
    {
        std::fprintf (stderr, "quendel-pipewire: %s; try --help\n", error.c_str());
        return couldNotStart;
    }

    if (options.wantsHelp)
    {
        std::fputs (PipeWire::getHelpText().c_str(), stdout);
        return 0;
    }

    // Before there is anything to leave behind.
    Machine::ServingLoop loop;
    PipeWire::Driver driver;

    if (const auto error = driver.start (options, "/sys"); ! error.empty())
    {
        std::fprintf (stderr, "quendel-pipewire: %s\n", error.c_str());
        return couldNotStart;
    }

    Machine::announceServing (driver.getHost().getPath());

    const auto listen = [&driver]
    {
        driver.listen();
        return true;
    };

    loop.add (driver.getHost().getDescriptor(), [] { return true; });

    // Newer PipeWires tell of each cycle as it comes: nobody looks ten times a second, or needs to know sooner.
    constexpr std::chrono::milliseconds rest { 100 };
    loop.add (driver.getGraph().getDescriptor(), listen, rest);
    loop.run ([&driver] { return driver.serve(); });
    return 0;
}
