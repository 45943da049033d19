# The kernel's clock wakes the message thread when a timer is due. As it comes, a thread of its own wakes for that, only to
# wake the message thread, and once more when that has called the timer.

set (file juce_events/timers/juce_Timer.cpp)

quendel_change_toolkit ([[
    int getTimeUntilFirstTimer (int numMillisecsElapsed)
    {
]] [[
   #if JUCE_LINUX
    struct KernelClock
    {
        ~KernelClock()
        {
            if (isWatched)
                LinuxEventLoop::unregisterFdCallback (descriptor);

            close (descriptor);
        }

        const int descriptor = timerfd_create (CLOCK_MONOTONIC, TFD_CLOEXEC);
        uint32 lastSet = Time::getMillisecondCounter();
        bool isWatched = false;
    };

    KernelClock kernelClock;

    void startThread (Priority)
    {
        if (std::exchange (kernelClock.isWatched, true))
            return;

        const auto callIfDue = [this, message = ReferenceCountedObjectPtr (new CallTimersMessage())] (int)
        {
            if (notify() <= 0)
                message->post();
        };

        LinuxEventLoop::registerFdCallback (kernelClock.descriptor, callIfDue);
    }

    /*  Sets the clock to when the next timer is due, which is returned in milliseconds from now. */
    int notify()
    {
        const LockType::ScopedLockType sl (lock);
        const auto now = Time::getMillisecondCounter();
        const auto first = getTimeUntilFirstTimer ((int) (now - std::exchange (kernelClock.lastSet, now)));
        const auto wait = jmax (1, first);
        const itimerspec due { {}, { wait / 1000, wait % 1000 * 1000000 } };
        timerfd_settime (kernelClock.descriptor, 0, &due, nullptr);
        return first;
    }
   #endif

    int getTimeUntilFirstTimer (int numMillisecsElapsed)
    {
]])

set (file juce_events/juce_events.cpp)
quendel_change_toolkit (" #include <unistd.h>\n" " #include <sys/timerfd.h>\n #include <unistd.h>\n")
