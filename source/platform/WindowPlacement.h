#pragma once

#include <functional>
#include <juce_gui_basics/juce_gui_basics.h>

/** Puts a window that is on the desktop where it belongs, and keeps it there until it has its frame. Message thread. */
class WindowPlacement
{
public:
    /** Where the window's content belongs, by the width of the frame around it. */
    using FindPlace = std::function<juce::Point<int> (const juce::BorderSize<int>& frame)>;

    /** @param window  not owned, outlives the placement */
    WindowPlacement (juce::TopLevelWindow& window, const FindPlace& findPlace);
    ~WindowPlacement();

    /** Where the user has the window's content: where it was put until it has its frame, then where it is. */
    juce::Point<int> getPosition() const;

private:
    struct Settling;

    juce::TopLevelWindow& window;
    std::unique_ptr<Settling> settling;

    JUCE_DECLARE_NON_COPYABLE (WindowPlacement)
};
