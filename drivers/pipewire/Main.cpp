#include "drivers/machine/ServingLoop.h"
#include "drivers/pipewire/Driver.h"
#include "drivers/pipewire/KernelLog.h"
#include "drivers/pipewire/MachineCheck.h"

int main (int numArguments, char** arguments)
{
    PipeWire::Options options;
    const auto commandLine = PipeWire::describeCommandLine (options);

    if (const auto exitCode = commandLine.read (numArguments, arguments))
        return *exitCode;

    // Before there is anything to leave behind.
    Machine::ServingLoop loop;
    PipeWire::Driver driver (commandLine);

    if (const auto error = driver.start (options, "/sys"); ! error.empty())
        return commandLine.fail (error);

    for (const auto& line : PipeWire::checkMachine ("/"))
        commandLine.say (line);

    const PipeWire::KernelLog kernelLog ("/dev/kmsg");
    Machine::announceServing (driver.getHost().getPath());

    loop.add ([&driver] { return driver.getHost().getDescriptor(); }, [&driver] { driver.getHost().serve(); });
    loop.add ([&driver] { return driver.getDescriptor(); }, [&driver] { driver.listen(); });
    loop.add ([&kernelLog] { return kernelLog.getDescriptor(); },
              [&driver, &kernelLog] { driver.kernelComplained (kernelLog.read()); });
    loop.run ([&driver] { return driver.serve(); });
    return 0;
}
