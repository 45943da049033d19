#include "drivers/simulator/Orders.h"
#include "drivers/simulator/Simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace
{
using namespace Simulation;

constexpr int couldNotStart = 2;

/** Cuts standard input into orders and prints the answers. */
class OrderReader
{
public:
    explicit OrderReader (Simulator& newSimulator) : simulator (newSimulator) {}

    /** Takes what there is to read; returns false at the end of the input. */
    bool read()
    {
        char bytes[1024];
        const auto size = ::read (STDIN_FILENO, bytes, sizeof (bytes));

        if (size <= 0)
            return size < 0 && (errno == EINTR || errno == EAGAIN);

        for (const auto character : std::string_view (bytes, static_cast<std::size_t> (size)))
            take (character);

        return true;
    }

private:
    static constexpr std::size_t maximumLength = 1000;

    void take (char character)
    {
        if (character != '\n')
        {
            // One character more than is allowed is kept, to know it by.
            if (line.size() <= maximumLength)
                line.push_back (character);

            return;
        }

        if (! simulator.isQuitting())
        {
            const auto answer =
                line.size() > maximumLength ? "error: the order is too long" : executeOrder (simulator, line);
            std::printf ("%s\n", answer.c_str());
            std::fflush (stdout);
        }

        line.clear();
    }

    Simulator& simulator;
    std::string line;
};

FileDescriptor receiveSignals()
{
    sigset_t signals;
    sigemptyset (&signals);
    sigaddset (&signals, SIGINT);
    sigaddset (&signals, SIGTERM);
    sigprocmask (SIG_BLOCK, &signals, nullptr);

    // Whoever reads the answers may leave before us.
    std::signal (SIGPIPE, SIG_IGN);
    return FileDescriptor (::signalfd (-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

void run (Simulator& simulator, int signals)
{
    OrderReader orders (simulator);
    pollfd sources[] = { { simulator.getDescriptor(), POLLIN, 0 },
                         { signals, POLLIN, 0 },
                         { STDIN_FILENO, POLLIN, 0 } };

    while (! simulator.isQuitting())
    {
        if (::poll (sources, std::size (sources), simulator.getTimeout()) < 0 && errno != EINTR)
            return;

        if (sources[1].revents != 0)
            return;

        // A descriptor below 0 is not polled any more.
        if (sources[2].revents != 0 && ! orders.read())
            sources[2].fd = -1;

        simulator.serve();
    }
}
} // namespace

int main (int numArguments, char** arguments)
{
    Options options;

    if (const auto error = parseOptions (numArguments, arguments, options); ! error.empty())
    {
        std::fprintf (stderr, "quendel-simulator: %s; try --help\n", error.c_str());
        return couldNotStart;
    }

    if (options.wantsHelp)
    {
        std::fputs (getHelpText().c_str(), stdout);
        return 0;
    }

    // Before there is anything to leave behind.
    const auto signals = receiveSignals();
    Simulator simulator;

    if (const auto error = simulator.start (options); ! error.empty())
    {
        std::fprintf (stderr, "quendel-simulator: %s\n", error.c_str());
        return couldNotStart;
    }

    std::printf ("serving %zu interfaces in %s\n", simulator.getDevices().size(), simulator.getPath().c_str());
    std::fflush (stdout);

    run (simulator, signals.get());
    return 0;
}
