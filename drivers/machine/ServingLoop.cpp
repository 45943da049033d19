#include "drivers/machine/ServingLoop.h"

#include <poll.h>
#include <sys/signalfd.h>

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

void ServingLoop::add (int descriptor, std::function<bool()> onReadable)
{
    sources.push_back ({ descriptor, std::move (onReadable) });
}

void ServingLoop::run (const std::function<std::optional<int>()>& onTurn)
{
    std::vector<pollfd> polled { { signals.get(), POLLIN, 0 } };

    for (const auto& source : sources)
        polled.push_back ({ source.descriptor, POLLIN, 0 });

    for (auto timeout = onTurn(); timeout; timeout = onTurn())
    {
        if (::poll (polled.data(), polled.size(), *timeout) < 0)
        {
            if (errno != EINTR)
                return;

            continue;
        }

        if (polled[0].revents != 0)
            return;

        // A descriptor below 0 is not polled any more.
        for (std::size_t i = 0; i < sources.size(); ++i)
            if (polled[i + 1].revents != 0 && ! sources[i].onReadable())
                polled[i + 1].fd = -1;
    }
}

void announceServing (const std::string& path)
{
    std::printf ("serving %s\n", path.c_str());
    std::fflush (stdout);
}

} // namespace Machine
