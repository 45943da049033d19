#include "platform/WindowPlacement.h"

/** Here a window has its frame as soon as it is on the desktop. */
struct WindowPlacement::Settling
{
};

WindowPlacement::WindowPlacement (juce::TopLevelWindow& windowToPlace, const FindPlace& findPlace)
    : window (windowToPlace)
{
    const auto frame = window.getPeer()->getFrameSizeIfPresent();
    window.setTopLeftPosition (findPlace (frame ? *frame : juce::BorderSize<int>()));
}

WindowPlacement::~WindowPlacement() = default;

juce::Point<int> WindowPlacement::getPosition() const
{
    return window.getPosition();
}
