# The timer at the display's rate runs only while something waits to be painted or somebody listens to it. As it comes it
# fires 60 to 100 times a second as long as there is a window, and each firing wakes two threads, which is most of what
# an idle window costs. What is painted after a pause is painted at once, without the timer.

set (file juce_gui_basics/native/juce_linux_Windowing.cpp juce_gui_basics/native/juce_Windowing_linux.cpp)

# What called back for frames before.
if (version VERSION_LESS 8)
    quendel_change_toolkit ([[

    class LinuxVBlankManager  : public Timer
    {
    public:
        explicit LinuxVBlankManager (std::function<void()> cb)  : callback (std::move (cb))
        {
            jassert (callback);
        }

        ~LinuxVBlankManager() override           { stopTimer(); }

        //==============================================================================
        void timerCallback() override            { callback(); }

    private:
        std::function<void()> callback;

        JUCE_DECLARE_NON_COPYABLE (LinuxVBlankManager)
        JUCE_DECLARE_NON_MOVEABLE (LinuxVBlankManager)
    };
]] "")
else()
    quendel_change_toolkit ("TimedCallback vBlankManager" "LinuxVBlankManager vBlankManager")
endif()

quendel_change_toolkit ([[
        JUCE_DECLARE_NON_COPYABLE (LinuxRepaintManager)
    };
]] [[
        JUCE_DECLARE_NON_COPYABLE (LinuxRepaintManager)
    };

    /*  Calls back for frames while they are asked for, never more often than the display refreshes. The
        first frame after a pause comes at once, without the help of a timer.
    */
    class LinuxVBlankManager  : private Timer,
                                private AsyncUpdater
    {
    public:
        enum class Next { none, frame, idleCheck };

        explicit LinuxVBlankManager (std::function<Next()> cb)  : callback (std::move (cb))
        {
            jassert (callback);
        }

        ~LinuxVBlankManager() override
        {
            stopTimer();
            cancelPendingUpdate();
        }

        void setFrequency (int frequencyHz)
        {
            framePeriodMs = jmax (1, 1000 / frequencyHz);
        }

        void requestFrame()
        {
            if (isFrameTimer)
                return;

            if (Time::getMillisecondCounter() - lastFrameTime >= (uint32) framePeriodMs)
                triggerAsyncUpdate();
            else
                startFrameTimer();
        }

    private:
        void startFrameTimer()
        {
            isFrameTimer = true;
            startTimer (framePeriodMs);
        }

        void timerCallback() override           { doFrame(); }
        void handleAsyncUpdate() override       { doFrame(); }

        void doFrame()
        {
            lastFrameTime = Time::getMillisecondCounter();
            const auto next = callback();

            if (next == Next::frame)
            {
                if (! isFrameTimer)
                    startFrameTimer();
            }
            else if (next == Next::none)
            {
                isFrameTimer = false;
                stopTimer();
            }
            else if (isFrameTimer || ! isTimerRunning())
            {
                isFrameTimer = false;
                startTimer (idleCheckPeriodMs);
            }
        }

        static constexpr int idleCheckPeriodMs = 3000;

        std::function<Next()> callback;
        int framePeriodMs = 10;
        uint32 lastFrameTime = 0;
        bool isFrameTimer = false;

        JUCE_DECLARE_NON_COPYABLE (LinuxVBlankManager)
        JUCE_DECLARE_NON_MOVEABLE (LinuxVBlankManager)
    };
]])

quendel_change_toolkit ([[
            repainter->repaint (area.getIntersection (bounds.withZeroOrigin()));
]] [[
        {
            repainter->repaint (area.getIntersection (bounds.withZeroOrigin()));

            if (repainter->isRepaintNeeded())
                vBlankManager.requestFrame();
        }
]])

quendel_change_toolkit ([[
            regionsNeedingRepaint.add (area * peer.currentScaleFactor);
        }
]] [[
            regionsNeedingRepaint.add (area * peer.currentScaleFactor);
        }

        bool isRepaintNeeded() const noexcept   { return ! regionsNeedingRepaint.isEmpty(); }
        bool hasImage() const noexcept          { return image.isValid(); }
]])

quendel_change_toolkit ("void onVBlank()" "LinuxVBlankManager::Next onVBlank()")

quendel_change_toolkit ([[
            repainter->dispatchDeferredRepaints();
    }
]] [[
            repainter->dispatchDeferredRepaints();

        if (! vBlankListeners.isEmpty() || (repainter != nullptr && repainter->isRepaintNeeded()))
            return LinuxVBlankManager::Next::frame;

        // The image is let go of some time after its last use.
        return repainter != nullptr && repainter->hasImage() ? LinuxVBlankManager::Next::idleCheck
                                                             : LinuxVBlankManager::Next::none;
    }

    void vBlankListenerAdded() override
    {
        vBlankManager.requestFrame();
    }
]])

quendel_change_toolkit ([[
            const auto frequencyToUse = newIntFrequencyHz != 0 ? newIntFrequencyHz : 100;

            if (vBlankManager.getTimerInterval() != frequencyToUse)
                vBlankManager.startTimerHz (frequencyToUse);
]] [[
            vBlankManager.setFrequency (newIntFrequencyHz > 0 ? newIntFrequencyHz : 100);
]])

quendel_change_toolkit ("{ onVBlank(); }" "{ return onVBlank(); }")
