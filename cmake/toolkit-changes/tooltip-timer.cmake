# The tooltip window of a component watches the mouse only while it is over something in that component that has a tip.
# As it comes, it looks eight times a second, and has the desktop ask ten times a second where the mouse is.

set (file juce_gui_basics/windows/juce_TooltipWindow.cpp)

quendel_change_toolkit ([[
        desktop.addGlobalMouseListener (this);
]] [[
        if (parentComp != nullptr)
        {
            parentComp->addMouseListener (this, true);
            return;
        }

        desktop.addGlobalMouseListener (this);
]])

quendel_change_toolkit ([[
    hideTip();
    Desktop::getInstance().removeGlobalMouseListener (this);
]] [[
    hideTip();

    if (auto* parent = getParentComponent())
        parent->removeMouseListener (this);

    Desktop::getInstance().removeGlobalMouseListener (this);
]])

quendel_change_toolkit ([[
    if (e.eventComponent == this)
        hideTip();
]] [[
    if (e.eventComponent == this)
        hideTip();
    else if (getParentComponent() != nullptr)
        startTimer (123);
]])

quendel_change_toolkit ([[
        dismissalMouseEventOccurred = false;
    }
]] [[
        dismissalMouseEventOccurred = false;
        startTimer (123);
    }
]])

quendel_change_toolkit ([[
}

} // namespace juce
]] [[

    // The next component that the mouse enters may have a tip.
    if (getParentComponent() != nullptr && ! isVisible() && lastTipUnderMouse.isEmpty())
        stopTimer();
}

} // namespace juce
]])
