// What PipeWire's profiler sends: any bytes, and any cycles that can be read from them.

#include "drivers/pipewire/DeviceFigures.h"
#include "drivers/pipewire/ProfileReader.h"
#include "tests/fuzz/Fuzz.h"

using namespace PipeWire;

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    constexpr std::uint32_t numNodes = 4;
    DeviceFigures figures;
    CycleFilter filter;
    NodeKinds kinds;

    for (std::uint32_t id = 0; id < numNodes; ++id)
    {
        kinds[id] = static_cast<NodeKind> (id);
        figures.addNode (id);
    }

    for (auto& cycle : readProfile ({ data, size }))
    {
        // Few ids, so that cycles meet.
        cycle.driver.id %= numNodes;

        for (auto& follower : cycle.followers)
            follower.id %= 2 * numNodes;

        if (const auto xruns = filter.take (cycle))
            figures.add (cycle, *xruns, kinds);
    }

    const auto statistics = figures.getStatistics();
    require (statistics.wakeupAverage >= 0 && statistics.hostAverage >= 0, "nothing ends before it begins");
    require (figures.getCounters().fifoLevel <= 1024, "no more than full");
    return 0;
}
