// Messages of PipeWire's profiler: arbitrary bytes, and whatever cycles can be read from them.

#include "drivers/pipewire/ProfileReader.h"
#include "drivers/pipewire/XrunJournal.h"
#include "tests/fuzz/Fuzz.h"

#include <span>

using namespace PipeWire;

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    constexpr std::uint32_t numNodes = 8;
    DeviceFigures device (1), client (2);
    Roster roster;
    Accountant accountant;
    XrunJournal journal;

    for (std::uint32_t id = 0; id < numNodes; ++id)
    {
        roster.addNode (id, { static_cast<NodeKind> (id % 4), id % 3, "", 0 });
        roster.addLink (100 + id, id, (id + 3) % numNodes);
    }

    // PipeWire's own buffers are aligned.
    std::vector<std::uint64_t> message ((size + 7) / 8);
    std::ranges::copy (std::span (data, size), reinterpret_cast<std::uint8_t*> (message.data()));

    std::vector<Cycle> cycles;
    readProfile ({ reinterpret_cast<const std::uint8_t*> (message.data()), size }, cycles);

    for (auto& cycle : cycles)
    {
        // Few ids, so that nodes appear in more than one cycle.
        cycle.driver.id %= numNodes;

        for (auto& follower : cycle.followers)
            follower.id %= 2 * numNodes;

        if (const auto account = accountant.take (cycle, roster))
        {
            journal.follow (*account);
            client.add (*account, roster);

            if (const auto xruns = device.add (*account, roster))
                for (const auto& xrun : *xruns)
                    journal.add ("", xrun);
        }
    }

    journal.take (0, 0, false);

    for (const auto* figures : { &device, &client })
    {
        const auto statistics = figures->getStatistics();
        require (statistics.wakeupAverage >= 0 && statistics.hostAverage >= 0, "nothing ends before it begins");
        require (figures->getCounters().fifoLevel <= 1024, "no more than full");
    }

    return 0;
}
