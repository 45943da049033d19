#include "drivers/machine/ServingLoop.h"
#include "drivers/simulator/Orders.h"
#include "drivers/simulator/Simulator.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace
{
using namespace Simulation;

/** Cuts standard input into orders and prints the answers. */
class OrderReader
{
public:
    explicit OrderReader (Simulator& newSimulator) : simulator (newSimulator) {}

    /** The input; -1: it has ended. */
    int getDescriptor() const { return hasEnded ? -1 : STDIN_FILENO; }

    /** Takes what there is to read. */
    void read()
    {
        char bytes[1024];
        const auto size = ::read (STDIN_FILENO, bytes, sizeof (bytes));

        if (size <= 0)
            hasEnded = size == 0 || (errno != EINTR && errno != EAGAIN);
        else
            for (const auto character : std::string_view (bytes, static_cast<std::size_t> (size)))
                take (character);
    }

private:
    static constexpr std::size_t maximumLength = 1000;

    void take (char character)
    {
        if (character != '\n')
        {
            // Keeps one character more than allowed, which marks the line as too long.
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
    bool hasEnded = false;
};
} // namespace

int main (int numArguments, char** arguments)
{
    Options options;
    const auto commandLine = describeCommandLine (options);

    if (const auto exitCode = commandLine.read (numArguments, arguments))
        return *exitCode;

    // Before there is anything to leave behind.
    Machine::ServingLoop loop;
    Simulator simulator;

    if (const auto error = simulator.start (options); ! error.empty())
        return commandLine.fail (error);

    Machine::announceServing (simulator.getHost().getPath());

    OrderReader orders (simulator);
    loop.add ([&simulator] { return simulator.getHost().getDescriptor(); }, [] {});
    loop.add ([&orders] { return orders.getDescriptor(); }, [&orders] { orders.read(); });
    loop.run (
        [&simulator]() -> std::optional<int>
        {
            simulator.serve();
            return simulator.isQuitting() ? std::nullopt : std::optional (simulator.getTimeout());
        });

    return 0;
}
