#include "platform/AccessGuard.h"

#include <csetjmp>
#include <csignal>

namespace AccessGuard
{

/** Where the calling thread's guarded reading continues after a fault; null outside of one. */
static thread_local sigjmp_buf* landing = nullptr;

static struct sigaction previousSegv;
static struct sigaction previousBus;

static void handleFault (int signal, siginfo_t*, void*)
{
    if (landing != nullptr)
        siglongjmp (*landing, 1);

    // Nobody guarded this one: put back what was there before and let the access fault again.
    sigaction (signal, signal == SIGBUS ? &previousBus : &previousSegv, nullptr);
}

static bool installHandlers()
{
    struct sigaction action = {};
    action.sa_sigaction = handleFault;
    action.sa_flags = SA_SIGINFO;
    sigemptyset (&action.sa_mask);

    return sigaction (SIGSEGV, &action, &previousSegv) == 0 && sigaction (SIGBUS, &action, &previousBus) == 0;
}

void fault()
{
    siglongjmp (*landing, 1);
}

/** The handler is left by a jump, with its signal still blocked. Only a fault pays for that, not every reading. */
static void unblockFaults()
{
    sigset_t faults;
    sigemptyset (&faults);
    sigaddset (&faults, SIGSEGV);
    sigaddset (&faults, SIGBUS);
    pthread_sigmask (SIG_UNBLOCK, &faults, nullptr);
}

bool run (void (*reading) (void*), void* context)
{
    static const bool installed = installHandlers();
    sigjmp_buf here;

    if (! installed)
        return false;

    if (sigsetjmp (here, 0) != 0)
    {
        unblockFaults();
        landing = nullptr;
        return false;
    }

    landing = &here;
    reading (context);
    landing = nullptr;
    return true;
}

} // namespace AccessGuard
