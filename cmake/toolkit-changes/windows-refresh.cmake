# Asks the system to paint as soon as something changes, instead of at the next vertical blank. As it comes, a thread for
# each monitor waits for the vertical blank with the highest priority that there is, beside the audio, and spins where
# that wait returns at once, as it does while a display sleeps; and where there is no vertical blank, as in some remote
# sessions, nothing is ever painted. The thread is left for those who listen to the vertical blank, at normal priority.

set (file juce_gui_basics/native/juce_win32_Windowing.cpp)

if (version VERSION_GREATER_EQUAL 8)
    if (WIN32)
        message (FATAL_ERROR "${change} is not written for JUCE ${version} on Windows.")
    endif()

    return()
endif()

quendel_change_toolkit ("startThread (Priority::highest);" "startThread (Priority::normal);")

quendel_change_toolkit ([[
        VBlankDispatcher::getInstance()->removeListener (*this);
]] [[
        if (auto* dispatcher = VBlankDispatcher::getInstanceWithoutCreating())
            dispatcher->removeListener (*this);
]])

quendel_change_toolkit ([[
        deferredRepaints.add ((area.toDouble() * getPlatformScaleFactor()).getSmallestIntegerContainer());
    }

    void dispatchDeferredRepaints()
    {
        for (auto deferredRect : deferredRepaints)
        {
            auto r = RECTFromRectangle (deferredRect);
            InvalidateRect (hwnd, &r, FALSE);
        }

        deferredRepaints.clear();
    }
]] [[
        // The system asks for it to be painted when it has nothing more urgent, vertical blanks or not.
        const auto r = RECTFromRectangle ((area.toDouble() * getPlatformScaleFactor()).getSmallestIntegerContainer());
        InvalidateRect (hwnd, &r, FALSE);
    }
]])

quendel_change_toolkit ([[
            dispatchDeferredRepaints();

]] "")

quendel_change_toolkit ([[
        dispatchDeferredRepaints();
    }
]] [[
    }

    void vBlankListenerAdded() override
    {
        updateCurrentMonitorAndRefreshVBlankDispatcher (ForceRefreshDispatcher::yes);
    }
]])

quendel_change_toolkit ([[
        auto monitor = MonitorFromWindow (hwnd, MONITOR_DEFAULTTONULL);
]] [[
        // Without listeners there is nothing to wait for the vertical blank for.
        if (vBlankListeners.isEmpty())
            return;

        auto monitor = MonitorFromWindow (hwnd, MONITOR_DEFAULTTONULL);
]])

quendel_change_toolkit ([[
        auto* dispatcher = VBlankDispatcher::getInstance();
        dispatcher->reconfigureDisplays();
]] [[
        if (auto* dispatcher = VBlankDispatcher::getInstanceWithoutCreating())
            dispatcher->reconfigureDisplays();

]])

quendel_change_toolkit ([[
    RectangleList<int> deferredRepaints;
]] "")
