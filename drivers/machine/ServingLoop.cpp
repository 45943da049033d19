#include "drivers/machine/ServingLoop.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

namespace Machine
{

ServingLoop::ServingLoop()
{
    sigset_t ends;
    sigemptyset (&ends);
    sigaddset (&ends, SIGINT);
    sigaddset (&ends, SIGTERM);
    sigprocmask (SIG_BLOCK, &ends, nullptr);

    // Whoever reads what we print may leave before us.
    std::signal (SIGPIPE, SIG_IGN);
    signals = FileDescriptor (::signalfd (-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
}

void ServingLoop::add (int descriptor, std::function<bool()> onReadable, std::chrono::milliseconds rest)
{
    sources.push_back ({ descriptor, std::move (onReadable), rest });
}

void ServingLoop::run (const std::function<std::optional<int>()>& onTurn)
{
    std::vector<pollfd> polled { { signals.get(), POLLIN, 0 } };

    for (const auto& source : sources)
        polled.push_back ({ source.descriptor, POLLIN, 0 });

    for (auto timeout = onTurn(); timeout; timeout = onTurn())
    {
        using namespace std::chrono;
        const auto now = steady_clock::now();

        // A descriptor below 0 is not polled.
        for (std::size_t i = 0; i < sources.size(); ++i)
        {
            const auto isResting = sources[i].restsUntil > now;
            polled[i + 1].fd = isResting ? -1 : sources[i].descriptor;

            if (isResting)
            {
                const auto rest = static_cast<int> (ceil<milliseconds> (sources[i].restsUntil - now).count());
                timeout = *timeout < 0 ? rest : std::min (*timeout, rest);
            }
        }

        if (::poll (polled.data(), polled.size(), *timeout) < 0)
        {
            if (errno != EINTR)
                return;

            continue;
        }

        if (polled[0].revents != 0)
            return;

        for (std::size_t i = 0; i < sources.size(); ++i)
        {
            if (polled[i + 1].revents == 0)
                continue;

            auto& source = sources[i];

            if (! source.onReadable())
                source.descriptor = -1;

            // What comes seldom finds it awake.
            const auto called = steady_clock::now();
            source.restsUntil = called < source.lastCall + 2 * source.rest ? called + source.rest : called;
            source.lastCall = called;
        }
    }
}

void announceServing (const std::string& path)
{
    std::printf ("serving %s\n", path.c_str());
    std::fflush (stdout);
}

} // namespace Machine
