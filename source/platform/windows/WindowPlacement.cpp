#include "platform/WindowPlacement.h"

/** Windows frames a window at once. */
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
