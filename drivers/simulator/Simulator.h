#pragma once

#include "drivers/machine/Clock.h"
#include "drivers/machine/Host.h"
#include "drivers/simulator/Options.h"
#include "drivers/simulator/SimulatedDevice.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Simulation
{

/** A machine folder and the simulated devices in it. Used by one thread at a time. */
class Simulator
{
public:
    explicit Simulator (Clock newClock = Machine::readClock);

    /** Takes every interface away as unplug() does, then the folder. */
    ~Simulator();

    Simulator (const Simulator&) = delete;
    Simulator& operator= (const Simulator&) = delete;

    /** Makes the folder and plugs the devices in; possible once.

        @returns an empty string, or one line that says why it could not be done; nothing is left behind when
                 the simulator is destroyed
    */
    std::string start (const Options& newOptions);

    Machine::Host& getHost() { return host; }

    /** Milliseconds until serve() wants to be called although nothing has come in; -1: never. */
    int getTimeout() const;

    /** Answers what has come in to the host and lets time pass in the devices. Does not wait. */
    void serve();

    //==============================================================================
    /** Plugs a device in. A name that was here before gets its former place in the folder.

        @param name  empty: the next of the simulator's own names; the chosen one is written back
        @returns     an empty string, or one line that says why it could not be done
    */
    std::string plug (std::string& name);

    /** Takes a device away, in an orderly manner or as a crash would. */
    void unplug (SimulatedDevice& device, bool isCrash = false);

    /** The devices that are present, in the order in which they were plugged in. */
    const std::vector<std::unique_ptr<SimulatedDevice>>& getDevices() const { return devices; }

    /** The present device of this name, or null. */
    SimulatedDevice* findDevice (std::string_view name) const;

    /** Lets so many milliseconds pass in every device; false when its clock does not move by order. */
    bool tick (std::uint32_t milliseconds);

    void quit() { quitting = true; }
    bool isQuitting() const { return quitting; }

private:
    Clock clock;
    std::int64_t orderedTime = 1'000'000'000;
    Options options;
    Machine::Host host; // goes after the devices in it
    std::vector<std::unique_ptr<SimulatedDevice>> devices;
    std::map<std::string, std::uint32_t, std::less<>> numbers;
    std::int64_t lastAdvance = 0;
    bool quitting = false;
};

} // namespace Simulation
