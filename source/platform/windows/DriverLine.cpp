#include "platform/DriverLine.h"

#include <algorithm>
#include <process.h>
#include <string>
#include <utility>

/* Device I/O is synchronous, and a thread that a driver keeps cannot be had back: Windows does not even end its process
    before the driver lets go. So each line has a thread of its own, which alone meets the driver. */

namespace
{

/** Held for its lifetime. Native locks need no destruction, and threads outlive everything else. */
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

/** One open file and its thread. Lives until both its line is gone and its thread has ended. */
class Worker : public std::enable_shared_from_this<Worker>
{
public:
    using Duration = DriverLine::Duration;

    Worker (const char* pathToOpen, HWND windowToNotify) : path (pathToOpen), window (windowToNotify) {}
    ~Worker() { CloseHandle (thread); }
    Worker (const Worker&) = delete;
    Worker& operator= (const Worker&) = delete;

    /** Opening is the first question. False when the system has no thread left. */
    bool start()
    {
        // For drivers' clients and virus scanners as well, whose hooks run on it.
        constexpr unsigned stackSize = 256 * 1024;

        auto* self = new std::shared_ptr<Worker> (shared_from_this());
        const Locked locked (lock);

        // Not a std::thread, which throws when the system has no thread left.
        const auto started =
            _beginthreadex (nullptr, stackSize, runThread, self, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
        thread = reinterpret_cast<HANDLE> (started);

        if (started == 0)
            delete self;

        return started != 0;
    }

    bool ask (DWORD code, const void* input, DWORD inputSize, const void* output, DWORD outputSize)
    {
        const Locked locked (lock);

        if (isClosing || file == INVALID_HANDLE_VALUE)
            return false;

        const auto* inputBytes = static_cast<const char*> (input);
        const auto* outputBytes = static_cast<const char*> (output);
        controlCode = code;
        question.assign (inputBytes, inputBytes + inputSize);
        answer.bytes.assign (outputBytes, outputBytes + outputSize);
        stage = Stage::asked;
        WakeAllConditionVariable (&changed);
        return true;
    }

    bool takeAnswer (DriverAnswer& result, Duration limit)
    {
        const Locked locked (lock);

        if (! waitUntil ([this] { return stage == Stage::answered; }, limit))
            return false;

        stage = Stage::idle;
        std::swap (result, answer);
        return true;
    }

    void cancel() { CancelSynchronousIo (thread); }

    bool isAbout (const DEV_BROADCAST_HANDLE& notification)
    {
        const Locked locked (lock);
        return registration != nullptr && registration == notification.dbch_hdevnotify;
    }

    bool closeFile (Duration limit)
    {
        const Locked locked (lock);
        isClosing = true;
        WakeAllConditionVariable (&changed);
        return waitUntil ([this] { return ! isOpen; }, limit);
    }

    void end()
    {
        const Locked locked (lock);
        isClosing = isEnding = true;
        WakeAllConditionVariable (&changed);
    }

private:
    enum class Stage
    {
        asked,    // the thread waits for the driver, or is about to
        answered, // nobody has fetched it yet
        idle
    };

    /** False when the limit is over and it does not hold. */
    template <typename Condition>
    bool waitUntil (const Condition& holds, Duration limit)
    {
        using namespace std::chrono;

        // Not by the system's count of milliseconds, which goes on by 15 or 16 at a time.
        const auto end = steady_clock::now() + limit;

        while (! holds())
        {
            const auto left = ceil<milliseconds> (end - steady_clock::now()).count();

            if (left <= 0)
                return false;

            SleepConditionVariableSRW (&changed, &lock, static_cast<DWORD> (left), 0);
        }

        return true;
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
        auto* const opened = CreateFileA (path.c_str(),
                                          GENERIC_READ | GENERIC_WRITE,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr,
                                          OPEN_EXISTING,
                                          0,
                                          nullptr);
        const bool isThere = opened != INVALID_HANDLE_VALUE;
        const DWORD reason = isThere ? DWORD { ERROR_SUCCESS } : GetLastError();

        // Here, because the system asks the driver which device the file belongs to.
        auto* const notifications = isThere ? registerFile (opened) : nullptr;

        {
            const Locked locked (lock);
            file = opened;
            registration = notifications;
        }

        take (reason);

        while (awaitQuestion())
        {
            DWORD returned = 0;
            auto& bytes = answer.bytes;
            const auto succeeded = DeviceIoControl (opened,
                                                    controlCode,
                                                    question.data(),
                                                    static_cast<DWORD> (question.size()),
                                                    bytes.data(),
                                                    static_cast<DWORD> (bytes.size()),
                                                    &returned,
                                                    nullptr);
            take (succeeded != FALSE ? DWORD { ERROR_SUCCESS } : GetLastError());
        }

        if (isThere)
            CloseHandle (opened);

        awaitEnd();

        if (notifications != nullptr)
            UnregisterDeviceNotification (notifications);
    }

    HDEVNOTIFY registerFile (HANDLE opened) const
    {
        if (window == nullptr)
            return nullptr;

        DEV_BROADCAST_HANDLE filter {};
        filter.dbch_size = sizeof (filter);
        filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
        filter.dbch_handle = opened;
        return RegisterDeviceNotificationA (window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
    }

    void take (DWORD reason)
    {
        const Locked locked (lock);
        answer.error = reason == ERROR_OPERATION_ABORTED ? DriverAnswer::none : reason;
        stage = Stage::answered;
        WakeAllConditionVariable (&changed);
    }

    /** False when no more will come. */
    bool awaitQuestion()
    {
        const Locked locked (lock);

        while (stage != Stage::asked && ! isClosing)
            SleepConditionVariableSRW (&changed, &lock, INFINITE, 0);

        return ! isClosing && file != INVALID_HANDLE_VALUE;
    }

    /** Says that the file is closed, and waits until nobody needs to know. */
    void awaitEnd()
    {
        const Locked locked (lock);
        isOpen = false;
        WakeAllConditionVariable (&changed);

        while (! isEnding)
            SleepConditionVariableSRW (&changed, &lock, INFINITE, 0);
    }

    const std::string path;
    const HWND window;
    HANDLE thread = nullptr;

    SRWLOCK lock {}; // as SRWLOCK_INIT
    CONDITION_VARIABLE changed {};
    Stage stage = Stage::asked;
    bool isOpen = true; // or being opened or closed
    bool isClosing = false;
    bool isEnding = false;
    HANDLE file = INVALID_HANDLE_VALUE;
    HDEVNOTIFY registration = nullptr;

    // The thread's while a question is asked, else the callers'.
    DWORD controlCode = 0;
    std::vector<char> question;
    DriverAnswer answer;
};

class ThreadLine final : public DriverLine
{
public:
    explicit ThreadLine (std::shared_ptr<Worker> workerToUse) : worker (std::move (workerToUse)) {}
    ~ThreadLine() override { worker->end(); }

    bool send (DWORD code, const void* input, DWORD inputSize, const void* output, DWORD outputSize) override
    {
        return worker->ask (code, input, inputSize, output, outputSize);
    }

    bool receive (DriverAnswer& answer, Duration limit) override { return worker->takeAnswer (answer, limit); }
    void cancel() override { worker->cancel(); }
    bool isAbout (const DEV_BROADCAST_HANDLE& notification) const override { return worker->isAbout (notification); }
    bool close (Duration limit) override { return worker->closeFile (limit); }

private:
    const std::shared_ptr<Worker> worker;
};

} // namespace

//==============================================================================
std::unique_ptr<DriverLine> DriverLine::open (const char* path, HWND window, Duration limit, bool& answered)
{
    auto worker = std::make_shared<Worker> (path, window);

    if (! worker->start())
        return nullptr;

    auto line = std::make_unique<ThreadLine> (std::move (worker));
    DriverAnswer opening;
    answered = line->receive (opening, limit);

    if (answered && opening.error != ERROR_SUCCESS)
        return nullptr;

    return line;
}
