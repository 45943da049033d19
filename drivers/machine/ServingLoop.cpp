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

    // The reader of our output may end before us.
    std::signal (SIGPIPE, SIG_IGN);
    signals = FileDescriptor (::signalfd (-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
}

void ServingLoop::add (std::function<int()> getDescriptor, std::function<void()> onReadable)
{
    sources.push_back ({ std::move (getDescriptor), std::move (onReadable) });
}

void ServingLoop::run (const std::function<std::optional<int>()>& onTurn)
{
    std::vector<pollfd> polled (sources.size(), { -1, POLLIN, 0 });
    polled.push_back ({ signals.get(), POLLIN, 0 });

    for (auto timeout = onTurn(); timeout; timeout = onTurn())
    {
        for (std::size_t i = 0; i < sources.size(); ++i)
            polled[i].fd = sources[i].getDescriptor();

        if (::poll (polled.data(), polled.size(), *timeout) < 0)
        {
            if (errno != EINTR)
                return;

            continue;
        }

        if (polled.back().revents != 0)
            return;

        for (std::size_t i = 0; i < sources.size(); ++i)
            if (polled[i].revents != 0)
                sources[i].onReadable();
    }
}

void announceServing (const std::string& path)
{
    std::printf ("serving %s\n", path.c_str());
    std::fflush (stdout);
}

} // namespace Machine
