// The simulator's command line and orders, with clients that send anything.

#include "drivers/simulator/Orders.h"
#include "drivers/simulator/Options.h"
#include "drivers/simulator/Simulator.h"
#include "tests/fuzz/Fuzz.h"

#include <fcntl.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>

using namespace Machine;
using namespace Simulation;
namespace fs = std::filesystem;

namespace
{

/** Begins with the computer's start: devices then have no history, which takes its time to be made up. */
std::int64_t now = 0;

/** Connects to the first interface, if there is one, and sends it a request that nobody waits for. */
FileDescriptor sendRequest (const fs::path& machine, const std::string& request)
{
    FileDescriptor client (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));

    const fs::directory_iterator first (machine / "interfaces");

    if (first == fs::directory_iterator())
        return client;

    const FileDescriptor folder (::open (first->path().c_str(), O_PATH | O_CLOEXEC));
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::snprintf (address.sun_path, sizeof (address.sun_path), "/proc/self/fd/%d/driver", folder.get());

    if (::connect (client.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address)) == 0)
        ::send (client.get(), request.data(), request.size(), MSG_NOSIGNAL);

    return client;
}

std::string parse (std::string line, Options& options)
{
    std::vector<std::string> words { "quendel-simulator" };
    std::istringstream stream (line);

    for (std::string word; std::getline (stream, word, ' ');)
        words.push_back (word.substr (0, word.find ('\0')));

    std::vector<char*> arguments;

    for (auto& word : words)
        arguments.push_back (word.data());

    arguments.push_back (nullptr);
    return parseOptions (static_cast<int> (words.size()), arguments.data(), options);
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static FuzzFolder folder;
    std::istringstream lines (std::string (reinterpret_cast<const char*> (data), size));
    std::string line;
    Options options;
    std::getline (lines, line);

    if (const auto error = parse (line, options); ! error.empty())
    {
        require (error.find ('\n') == std::string::npos || line.find ('\n') != std::string::npos,
                 "a complaint about the command line is one line");
        options = {};
    }

    // Nothing outside of the run's own folder is touched, and 64 interfaces would only take time.
    options.machine = folder.getMachine();
    options.names.resize (std::min<std::size_t> (options.names.size(), 3));
    now = 0;

    {
        Simulator simulator ([] { return now; });
        require (simulator.start (options).empty(), "what the command line allows can be started");
        std::vector<FileDescriptor> clients;
        constexpr int maximumOrders = 24;

        for (int i = 0; i < maximumOrders && std::getline (lines, line) && ! simulator.isQuitting(); ++i)
        {
            now += 500'000;

            if (line.starts_with ('!'))
            {
                clients.push_back (sendRequest (folder.getMachine(), line.substr (1)));
            }
            else if (line.starts_with ('~'))
            {
                clients.clear();
            }
            else
            {
                const auto answer = executeOrder (simulator, line);
                require (answer.starts_with ("ok") || answer.starts_with ("error: "), "an order is answered");
                require (answer.find ('\n') == std::string::npos, "an answer is one line");
            }

            simulator.serve();
        }
    }

    require (fs::is_empty (folder.getRoot()), "the simulator leaves nothing behind");
    return 0;
}
