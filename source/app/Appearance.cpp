#include "app/Appearance.h"

#include "text/InterfaceColours.h"

static const juce::Colour markColour (0, 40, 220);

Appearance::Appearance()
{
    setColour (juce::Label::textColourId, juce::Colours::white);
    setColour (juce::Label::backgroundColourId, InterfaceColours::ground);
    setColour (juce::TextButton::buttonColourId, InterfaceColours::button);
    setColour (juce::ProgressBar::backgroundColourId, InterfaceColours::ground);
    setColour (juce::ProgressBar::foregroundColourId, InterfaceColours::button);
    setDefaultLookAndFeel (this);
}

Appearance::~Appearance()
{
    setDefaultLookAndFeel (nullptr);
}

std::unique_ptr<juce::FocusOutline> Appearance::createFocusOutlineForComponent (juce::Component&)
{
    struct Line : public juce::FocusOutline::OutlineWindowProperties
    {
        juce::Rectangle<int> getOutlineBounds (juce::Component& focused) override { return focused.getScreenBounds(); }

        void drawOutline (juce::Graphics& g, int width, int height) override
        {
            constexpr int outerThickness = 1, innerThickness = 2;
            const juce::Rectangle<int> bounds (width, height);
            g.setColour (juce::Colours::white);
            g.drawRect (bounds, outerThickness);
            g.setColour (markColour);
            g.drawRect (bounds.reduced (outerThickness), innerThickness);
        }
    };

    return std::make_unique<juce::FocusOutline> (std::make_unique<Line>());
}

void Appearance::drawTabButton (juce::TabBarButton& button, juce::Graphics& g, bool isMouseOver, bool isMouseDown)
{
    constexpr int markHeight = 3;
    TextLook::drawTabButton (button, g, isMouseOver, isMouseDown);

    if (button.isFrontTab())
    {
        g.setColour (markColour);
        g.fillRect (button.getActiveArea().removeFromTop (markHeight));
    }
}

void Appearance::drawProgressBar (juce::Graphics& g,
                                  juce::ProgressBar& bar,
                                  int width,
                                  int height,
                                  double progress,
                                  const juce::String& text)
{
    TextLook::drawProgressBar (g, bar, width, height, progress, {});
    g.setColour (juce::Colours::white);
    g.drawRoundedRectangle (bar.getLocalBounds().toFloat().reduced (0.5f), static_cast<float> (height) / 2.0f, 1.0f);

    auto rest = juce::Rectangle<int> (width, height);
    const auto done = rest.removeFromLeft (juce::roundToInt (progress * width));

    for (const auto& [part, colour] : { std::pair { done, InterfaceColours::ground }, { rest, juce::Colours::white } })
    {
        const juce::Graphics::ScopedSaveState state (g);
        g.reduceClipRegion (part);
        g.setColour (colour);
        g.drawText (text, 0, 0, width, height, juce::Justification::centred, false);
    }
}
