#include "platform/WindowPlacement.h"

/** A window manager frames the window some time after it was shown, which shifts it by the frame's border, now and
    then unnoticed by the toolkit. Once the frame is there the window is put back where it belongs, for a while, and
    by way of the place beside it: a move to where the toolkit believes the window to be would not be asked for.
*/
struct WindowPlacement::Settling : private juce::Timer
{
    Settling (juce::TopLevelWindow& windowToPlace, const FindPlace& findPlaceOfIt)
        : window (windowToPlace),
          findPlace (findPlaceOfIt),
          place (findPlace ({}))
    {
        constexpr int tickIntervalMs = 20;
        window.setTopLeftPosition (place);
        startTimer (tickIntervalMs);
    }

    void timerCallback() override
    {
        constexpr int framelessTicks = 15, longestWaitTicks = 250, restoringTicks = 15, ticksPerDetour = 5;

        const auto* peer = window.getPeer();
        const auto frame = peer != nullptr ? peer->getFrameSizeIfPresent() : juce::ComponentPeer::OptionalBorderSize();
        ++ticksShown;

        if (! frame)
        {
            settled = settled || ticksShown >= framelessTicks;

            if (ticksShown >= longestWaitTicks)
                stopTimer();

            return;
        }

        place = findPlace (*frame);

        if (ticksFramed++ % ticksPerDetour == 0)
            window.setTopLeftPosition (place.translated (1, 0));

        window.setTopLeftPosition (place);

        if (ticksFramed >= restoringTicks)
        {
            settled = true;
            stopTimer();
        }
    }

    juce::TopLevelWindow& window;
    const FindPlace findPlace;
    juce::Point<int> place;
    int ticksShown = 0;
    int ticksFramed = 0;
    bool settled = false; // the window is now where the user put it
};

WindowPlacement::WindowPlacement (juce::TopLevelWindow& windowToPlace, const FindPlace& findPlace)
    : window (windowToPlace),
      settling (std::make_unique<Settling> (window, findPlace))
{
}

WindowPlacement::~WindowPlacement() = default;

juce::Point<int> WindowPlacement::getPosition() const
{
    return settling->settled ? window.getPosition() : settling->place;
}
