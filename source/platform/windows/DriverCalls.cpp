#include "platform/DriverCalls.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <process.h>
#include <string>
#include <utility>
#include <vector>

/* Device I/O is synchronous, and a thread that a driver keeps cannot be had back: Windows does not even end its process
   before the driver lets go. So each handle has a thread of its own, which alone meets the driver. */

namespace DriverCalls
{

namespace
{
/** So long is waited for a driver, and after so long a request is cancelled. */
constexpr std::uint64_t longestMs = 1000;

/** For one that was late the last time, or when silent drivers have used up everybody's patience. */
constexpr std::uint64_t shortestMs = 10;

/** Threads that drivers keep although their handles are closed, for each interface; then it is not opened any more. */
constexpr int maximumKept = 4;

/** Taken for as long as it lives. Native locks: their destruction is nobody's concern, and threads outlive all else. */
class Locked
{
public:
    explicit Locked (SRWLOCK& lockToTake) : lock (lockToTake) { AcquireSRWLockExclusive (&lock); }
    ~Locked() { ReleaseSRWLockExclusive (&lock); }
    Locked (const Locked&) = delete;
    Locked& operator= (const Locked&) = delete;

private:
    SRWLOCK& lock;
};

/** What all waits for silent drivers share. Used up, it comes back at a quarter of the time that passes. */
class Patience
{
public:
    std::uint64_t getMs()
    {
        const Locked locked (lock);
        constexpr std::uint64_t slowness = 4;
        const auto now = GetTickCount64();
        spentMs -= std::min (spentMs, (now - updated) / slowness);
        updated = now;
        return std::clamp (longestMs - std::min (spentMs, longestMs), shortestMs, longestMs);
    }

    void spend (std::uint64_t ms)
    {
        const Locked locked (lock);
        spentMs = std::min (spentMs + ms, longestMs);
        updated = GetTickCount64();
    }

private:
    SRWLOCK lock {}; // as SRWLOCK_INIT
    std::uint64_t spentMs = 0;
    std::uint64_t updated = 0;
};

/** Never destroyed: a thread that a driver lets go at the program's end still finds it. */
struct Shared
{
    Patience patience;
    SRWLOCK lock {};
    std::map<std::string, int> numKept; // by path

    static Shared& get()
    {
        static auto& shared = *new Shared();
        return shared;
    }
};

/** One open file and its thread. Lives until both its handle is closed and its thread has ended. */
class Worker : public std::enable_shared_from_this<Worker>
{
public:
    Worker (const char* pathToOpen, HWND windowToNotify) : path (pathToOpen), window (windowToNotify) {}
    ~Worker() { CloseHandle (thread); }
    Worker (const Worker&) = delete;
    Worker& operator= (const Worker&) = delete;

    bool open()
    {
        constexpr unsigned stackSize = 64 * 1024;

        auto* self = new std::shared_ptr<Worker> (shared_from_this());
        const Locked locked (lock);
        stage = Stage::asked;
        isBegun = true;

        // Not a std::thread, which throws where there are no more threads to be had.
        const auto started =
            _beginthreadex (nullptr, stackSize, runThread, self, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
        thread = reinterpret_cast<HANDLE> (started);

        if (started == 0)
        {
            delete self;
            return fail (ERROR_NOT_ENOUGH_MEMORY);
        }

        isOpen = true;
        return awaitAnswer (GetTickCount64());
    }

    bool request (DWORD code, const void* input, DWORD inputSize, void* output, DWORD outputSize)
    {
        const Locked locked (lock);
        const auto start = GetTickCount64();

        // Another thread's request comes first.
        while (stage == Stage::asked || stage == Stage::answered)
            if (! sleep (start, longestMs))
                return fail (ERROR_SEM_TIMEOUT);

        if (stage == Stage::givenUp)
        {
            cancelWhenDue();
            return fail (ERROR_SEM_TIMEOUT);
        }

        if (isClosing || file == INVALID_HANDLE_VALUE)
            return fail (ERROR_INVALID_HANDLE);

        const auto* inputBytes = static_cast<const char*> (input);
        auto* outputBytes = static_cast<char*> (output);
        controlCode = code;
        question.assign (inputBytes, inputBytes + inputSize);
        answer.assign (outputBytes, outputBytes + outputSize);
        stage = Stage::asked;
        isBegun = false;
        WakeAllConditionVariable (&changed);

        const bool answeredWell = awaitAnswer (start);

        // Also with a failure that is only a warning, as the system does.
        if (stage == Stage::idle)
            std::copy (answer.begin(), answer.end(), outputBytes);

        return answeredWell;
    }

    /** The registration does not change from the open's success on. */
    bool isAbout (const DEV_BROADCAST_HANDLE& notification) const
    {
        return registration != nullptr && registration == notification.dbch_hdevnotify;
    }

    void closeFile()
    {
        auto& patience = Shared::get().patience;
        const Locked locked (lock);

        if (std::exchange (isClosing, true))
            return;

        const auto start = GetTickCount64();
        const auto allowed = isLate ? shortestMs : patience.getMs();
        WakeAllConditionVariable (&changed);

        if (stage == Stage::givenUp)
            CancelSynchronousIo (thread);

        while (isOpen && sleep (start, allowed))
        {
        }

        if (isOpen)
        {
            patience.spend (GetTickCount64() - start);
            isKept = true;
            count (1);
        }
    }

    void end()
    {
        closeFile();
        const Locked locked (lock);
        isEnding = true;
        WakeAllConditionVariable (&changed);
    }

private:
    enum class Stage
    {
        idle,
        asked,    // a caller waits for the driver
        answered, // the caller has not yet looked
        givenUp   // the caller is gone, the driver has not answered
    };

    static bool fail (DWORD reason)
    {
        SetLastError (reason);
        return false;
    }

    /** False when the time is over. */
    bool sleep (std::uint64_t start, std::uint64_t allowedMs)
    {
        const auto passed = GetTickCount64() - start;

        if (passed >= allowedMs)
            return false;

        SleepConditionVariableSRW (&changed, &lock, static_cast<DWORD> (allowedMs - passed), 0);
        return true;
    }

    /** Call with the lock held and a question asked. */
    bool awaitAnswer (std::uint64_t start)
    {
        auto& patience = Shared::get().patience;
        const auto allowed = isLate ? shortestMs : patience.getMs();
        asked = GetTickCount64();

        while (stage == Stage::asked && sleep (start, allowed))
        {
        }

        if (stage == Stage::asked)
        {
            patience.spend (GetTickCount64() - start);

            // One that the thread has yet to begin with is withdrawn: it would never be, nor end.
            stage = isBegun ? Stage::givenUp : Stage::idle;
            isLate = isBegun;
            WakeAllConditionVariable (&changed);

            if (isBegun)
                cancelWhenDue();

            return fail (ERROR_SEM_TIMEOUT);
        }

        stage = Stage::idle;
        isLate = false;
        WakeAllConditionVariable (&changed);
        return error == ERROR_SUCCESS || fail (error);
    }

    /** A driver that heeds it ends the request; the handle can be used again then. */
    void cancelWhenDue()
    {
        if (GetTickCount64() - asked >= longestMs)
            CancelSynchronousIo (thread);
    }

    /** Of threads that drivers keep although nobody waits for them any more. */
    void count (int difference) const
    {
        auto& shared = Shared::get();
        const Locked locked (shared.lock);

        if ((shared.numKept[path] += difference) == 0)
            shared.numKept.erase (path);
    }

    //==============================================================================
    static unsigned __stdcall runThread (void* context)
    {
        const std::unique_ptr<std::shared_ptr<Worker>> self (static_cast<std::shared_ptr<Worker>*> (context));
        (*self)->run();
        return 0;
    }

    void run()
    {
        file = CreateFileA (path.c_str(),
                            GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr,
                            OPEN_EXISTING,
                            0,
                            nullptr);
        registerFile();
        take (file != INVALID_HANDLE_VALUE);

        while (awaitQuestion())
        {
            DWORD returned = 0;
            take (DeviceIoControl (file,
                                   controlCode,
                                   question.data(),
                                   static_cast<DWORD> (question.size()),
                                   answer.data(),
                                   static_cast<DWORD> (answer.size()),
                                   &returned,
                                   nullptr)
                  != FALSE);
        }

        if (file != INVALID_HANDLE_VALUE)
            CloseHandle (file);

        awaitEnd();

        if (registration != nullptr)
            UnregisterDeviceNotification (registration);
    }

    /** Here, because the system asks the driver which device the file belongs to. Leaves the last error alone. */
    void registerFile()
    {
        if (window == nullptr || file == INVALID_HANDLE_VALUE)
            return;

        DEV_BROADCAST_HANDLE filter {};
        filter.dbch_size = sizeof (filter);
        filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
        filter.dbch_handle = file;
        registration = RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
    }

    /** The driver's answer; the last error tells why it is none. */
    void take (bool succeeded)
    {
        const auto reason = succeeded ? ERROR_SUCCESS : GetLastError();
        const Locked locked (lock);
        error = reason;

        if (stage == Stage::givenUp)
        {
            stage = Stage::idle;
            isLate = reason == ERROR_OPERATION_ABORTED;
        }
        else
        {
            stage = Stage::answered;
        }

        WakeAllConditionVariable (&changed);
    }

    /** False when there will be no more. */
    bool awaitQuestion()
    {
        const Locked locked (lock);

        while (stage != Stage::asked && ! isClosing)
            SleepConditionVariableSRW (&changed, &lock, INFINITE, 0);

        isBegun = true;
        return ! isClosing && file != INVALID_HANDLE_VALUE;
    }

    /** Tells that the file is closed, and waits until nobody wants to hear of it any more. */
    void awaitEnd()
    {
        const Locked locked (lock);
        isOpen = false;
        WakeAllConditionVariable (&changed);

        if (isKept)
            count (-1);

        while (! isEnding)
            SleepConditionVariableSRW (&changed, &lock, INFINITE, 0);
    }

    const std::string path;
    const HWND window;
    HANDLE thread = nullptr;

    SRWLOCK lock {};
    CONDITION_VARIABLE changed {};
    Stage stage = Stage::idle;
    bool isOpen = false; // or being opened or closed
    bool isClosing = false;
    bool isEnding = false;
    bool isBegun = false; // the thread has what was asked
    bool isLate = false;  // it did not answer in time, and has not since
    bool isKept = false;  // by the driver, in a request or in the closing itself, when nobody waited any longer
    std::uint64_t asked = 0;
    DWORD error = ERROR_SUCCESS;

    // The thread's while a question is asked or given up, else the callers'.
    HANDLE file = INVALID_HANDLE_VALUE;
    HDEVNOTIFY registration = nullptr;
    DWORD controlCode = 0;
    std::vector<char> question;
    std::vector<char> answer;
};

Worker& workerOf (HANDLE handle)
{
    return **static_cast<std::shared_ptr<Worker>*> (handle);
}
} // namespace

//==============================================================================
HANDLE open (const char* path, HWND window)
{
    {
        auto& shared = Shared::get();
        const Locked locked (shared.lock);
        const auto found = shared.numKept.find (path);

        if (found != shared.numKept.end() && found->second >= maximumKept)
        {
            SetLastError (ERROR_BUSY);
            return INVALID_HANDLE_VALUE;
        }
    }

    auto worker = std::make_shared<Worker> (path, window);

    if (worker->open())
        return new std::shared_ptr<Worker> (std::move (worker));

    const auto error = GetLastError();
    worker->end();
    SetLastError (error);
    return INVALID_HANDLE_VALUE;
}

bool request (HANDLE handle, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize)
{
    if (handle != INVALID_HANDLE_VALUE)
        return workerOf (handle).request (controlCode, input, inputSize, output, outputSize);

    SetLastError (ERROR_INVALID_HANDLE);
    return false;
}

bool isAbout (const DEV_BROADCAST_HANDLE& notification, HANDLE handle)
{
    return handle != INVALID_HANDLE_VALUE && workerOf (handle).isAbout (notification);
}

void closeFile (HANDLE handle)
{
    if (handle != INVALID_HANDLE_VALUE)
        workerOf (handle).closeFile();
}

void close (HANDLE handle)
{
    if (handle == INVALID_HANDLE_VALUE)
        return;

    workerOf (handle).end();
    delete static_cast<std::shared_ptr<Worker>*> (handle);
}

} // namespace DriverCalls
