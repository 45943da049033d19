#include "platform/Session.h"

#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace Session
{

void quitOnSignals()
{
    for (const int number : { SIGTERM, SIGHUP })
    {
        const auto before = std::signal (number, [] (int) { std::raise (SIGINT); });

        // nohup has it ignored.
        if (before == SIG_IGN)
            std::signal (number, SIG_IGN);
    }
}

bool namesDisplay()
{
    const auto* name = std::getenv ("DISPLAY");
    return name != nullptr && *name != 0;
}

} // namespace Session
