#include "text/TextLook.h"

#if JUCE_MAJOR_VERSION < 8
#include "text/ExtendedTypeface.h"
#endif

static constexpr int tipWidth = 290, tipMarginX = 8, tipMarginY = 4;

bool TextLook::canDraw()
{
    return ! juce::Font::findAllTypefaceNames().isEmpty();
}

juce::Typeface::Ptr TextLook::getTypefaceForFont (const juce::Font& font)
{
    const auto own = LookAndFeel_V4::getTypefaceForFont (font);

    // A later toolkit looks for a character in other typefaces by itself.
#if JUCE_MAJOR_VERSION < 8
    return new ExtendedTypeface (own, font);
#else
    return own;
#endif
}

juce::TextLayout TextLook::layOutTip (const juce::String& text)
{
    juce::AttributedString tip;
    tip.append (text, getPopupMenuFont().withHeight (13.0f), findColour (juce::TooltipWindow::textColourId));
    juce::TextLayout layout;
    layout.createLayout (tip, tipWidth);
    return layout;
}

/** Above or below the pointer, which would hide what it is over. */
juce::Rectangle<int>
    TextLook::getTooltipBounds (const juce::String& text, juce::Point<int> pointer, juce::Rectangle<int> area)
{
    constexpr int distance = 12;
    const auto layout = layOutTip (text);
    const int width = static_cast<int> (layout.getWidth()) + 2 * tipMarginX + 1;
    const int height = static_cast<int> (layout.getHeight()) + 2 * tipMarginY + 1;
    const bool isBelow = pointer.y < area.getCentreY();
    const int y = isBelow ? pointer.y + 2 * distance : pointer.y - distance - height;
    return juce::Rectangle<int> (pointer.x + distance, y, width, height).constrainedWithin (area);
}

void TextLook::drawTooltip (juce::Graphics& g, const juce::String& text, int width, int height)
{
    LookAndFeel_V4::drawTooltip (g, {}, width, height);
    layOutTip (text).draw (g, juce::Rectangle<int> (width, height).reduced (tipMarginX, tipMarginY).toFloat());
}
