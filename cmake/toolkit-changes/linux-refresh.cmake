# The timer at the display's rate runs only while something waits to be painted or somebody listens to it. As it comes it
# fires 60 to 100 times a second as long as there is a window, and each firing wakes two threads, which is most of what
# an idle window costs.

set (file juce_gui_basics/native/juce_linux_Windowing.cpp juce_gui_basics/native/juce_Windowing_linux.cpp)

quendel_change_toolkit ([[
            repainter->repaint (area.getIntersection (bounds.withZeroOrigin()));
]] [[
        {
            repainter->repaint (area.getIntersection (bounds.withZeroOrigin()));

            if (repainter->isRepaintNeeded())
                requestFrame();
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

quendel_change_toolkit ([[
            repainter->dispatchDeferredRepaints();
    }
]] [[
            repainter->dispatchDeferredRepaints();

        lastFrameTime = Time::getMillisecondCounter();

        if (! vBlankListeners.isEmpty() || (repainter != nullptr && repainter->isRepaintNeeded()))
            requestFrame();
        else if (repainter != nullptr && repainter->hasImage())
            vBlankManager.startTimer (3000); // it is let go of some time after its last use
        else
            vBlankManager.stopTimer();
    }

    /*  Calls for a frame, never more often than the display refreshes; the first after a pause comes at once. */
    void requestFrame()
    {
        const auto elapsed = Time::getMillisecondCounter() - lastFrameTime;

        if (elapsed >= framePeriodMs)
            firstFrame.triggerAsyncUpdate();
        else
            vBlankManager.startTimer ((int) (framePeriodMs - elapsed));
    }

    void vBlankListenerAdded() override
    {
        requestFrame();
    }

    uint32 framePeriodMs = 10, lastFrameTime = 0;

    struct FirstFrame : public AsyncUpdater
    {
        explicit FirstFrame (LinuxComponentPeer& owner) : peer (owner) {}
        ~FirstFrame() override { cancelPendingUpdate(); }
        void handleAsyncUpdate() override { peer.onVBlank(); }
        LinuxComponentPeer& peer;
    };

    FirstFrame firstFrame { *this };
]])

quendel_change_toolkit ([[
            const auto frequencyToUse = newIntFrequencyHz != 0 ? newIntFrequencyHz : 100;

            if (vBlankManager.getTimerInterval() != frequencyToUse)
                vBlankManager.startTimerHz (frequencyToUse);
]] [[
            framePeriodMs = newIntFrequencyHz > 0 ? (uint32) jmax (1, 1000 / newIntFrequencyHz) : 10;
]])

# A document window has no gaps: it need not be cleared before it is painted.
quendel_change_toolkit ("if (XWindowSystem::getInstance()->canUseARGBImages())"
                        "if (dynamic_cast<DocumentWindow*> (&peer.getComponent()) == nullptr)")

# The display tells when it has shown the last part of what was painted, not after each.
quendel_change_toolkit ("blitToWindow (peer.windowH, image, i, totalArea);"
                        "blitToWindow (peer.windowH, image, i, totalArea, &i == originalRepaintRegion.end() - 1);")

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.h juce_gui_basics/native/juce_XWindowSystem_linux.h)
quendel_change_toolkit ("Rectangle<int> totalRect) const;" "Rectangle<int> totalRect, bool isLast) const;")

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)
quendel_change_toolkit ("Rectangle<int> totalRect) const\n" "Rectangle<int> totalRect, bool isLast) const\n")
quendel_change_toolkit ("destinationRect.getY() - totalRect.getY());"
                        "destinationRect.getY() - totalRect.getY(), isLast);")
quendel_change_toolkit ("unsigned int dh, int sx, int sy)" "unsigned int dh, int sx, int sy, bool isLast)")
quendel_change_toolkit ([[
        if (isUsingXShm())
            XWindowSystem::getInstance()->addPendingPaintForWindow (window);
]] [[
        if (isLast && isUsingXShm())
            XWindowSystem::getInstance()->addPendingPaintForWindow (window);
]])
quendel_change_toolkit ("sx, sy, dx, dy, dw, dh, True);" "sx, sy, dx, dy, dw, dh, isLast);")
