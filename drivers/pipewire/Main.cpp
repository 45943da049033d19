#include "drivers/machine/ServingLoop.h"
#include "drivers/pipewire/Driver.h"
#include "drivers/pipewire/KernelLog.h"
#include "drivers/pipewire/MachineCheck.h"

#include <chrono>

int main (int numArguments, char** arguments)
{
    PipeWire::Options options;
    const auto commandLine = PipeWire::describeCommandLine (options);

    if (const auto exitCode = commandLine.read (numArguments, arguments))
        return *exitCode;

    // Before there is anything to leave behind.
    Machine::ServingLoop loop;
    PipeWire::Driver driver;

    if (const auto error = driver.start (options, "/sys"); ! error.empty())
        return commandLine.fail (error);

    for (const auto& line : PipeWire::checkMachine ("/"))
        commandLine.say (line);

    const PipeWire::KernelLog kernelLog ("/dev/kmsg");
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
    loop.add (kernelLog.getDescriptor(),
              [&driver, &kernelLog]
              {
                  driver.kernelComplained (kernelLog.read());
                  return true;
              });
    loop.run ([&driver] { return driver.serve(); });
    return 0;
}
