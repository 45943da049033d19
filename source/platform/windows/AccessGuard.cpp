#include "platform/AccessGuard.h"

#include "platform/Win32.h"
#include <cstdint>

namespace AccessGuard
{

/** The system knows only the section's pages, and the driver fills them to the end. */
std::size_t readableBytes (const void*) noexcept
{
    return SIZE_MAX;
}

/** True for the exceptions with which a view fails that is gone, or whose pages cannot be read. */
static bool isFault (DWORD exceptionCode) noexcept
{
    return exceptionCode == static_cast<DWORD> (EXCEPTION_ACCESS_VIOLATION)
           || exceptionCode == static_cast<DWORD> (EXCEPTION_IN_PAGE_ERROR);
}

#if defined(_MSC_VER) || defined(__clang__)

void fault()
{
    for (;;)
        RaiseException (static_cast<DWORD> (EXCEPTION_ACCESS_VIOLATION), EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

bool run (void (*reading) (void*), void* context)
{
    __try
    {
        reading (context);
        return true;
    }
    __except (isFault (GetExceptionCode()) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH)
    {
        return false;
    }
}

#else

/** Where a guarded reading continues after a fault; the compiler's own jump, which unwinds nothing. */
struct Landing
{
    void* buffer[5];
};

/** Holds each thread's landing, null outside of a guarded reading. Not a thread_local, which here allocates on
    first use: the handler may be called in the middle of anything.
*/
static DWORD landingSlot = TLS_OUT_OF_INDEXES;

void fault()
{
    __builtin_longjmp (static_cast<Landing*> (TlsGetValue (landingSlot))->buffer, 1);
}

/** Lets the faulting thread go on in fault(), as if the read had called it. */
static LONG CALLBACK handleFault (EXCEPTION_POINTERS* exception)
{
    if (! isFault (exception->ExceptionRecord->ExceptionCode) || TlsGetValue (landingSlot) == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;

    constexpr DWORD64 alignment = 16;
    constexpr DWORD64 calleeSpace = 64;

    auto& context = *exception->ContextRecord;
    context.Rip = reinterpret_cast<DWORD64> (&fault);
    context.Rsp = ((context.Rsp - calleeSpace) & ~(alignment - 1)) - sizeof (void*);
    return EXCEPTION_CONTINUE_EXECUTION;
}

static bool installHandler()
{
    constexpr ULONG beforeAllOthers = 1;
    landingSlot = TlsAlloc();

    return landingSlot != TLS_OUT_OF_INDEXES && AddVectoredExceptionHandler (beforeAllOthers, handleFault) != nullptr;
}

bool run (void (*reading) (void*), void* context)
{
    static const bool installed = installHandler();
    Landing here;

    if (! installed || __builtin_setjmp (here.buffer) != 0)
    {
        TlsSetValue (landingSlot, nullptr);
        return false;
    }

    TlsSetValue (landingSlot, &here);
    reading (context);
    TlsSetValue (landingSlot, nullptr);
    return true;
}

#endif

} // namespace AccessGuard
