#include "platform/Typefaces.h"

#include <juce_gui_basics/juce_gui_basics.h>

namespace Typefaces
{

#if JUCE_MAJOR_VERSION < 8
static bool hasCharacters (const juce::Font& font, const juce::String& text)
{
    const auto typeface = font.getTypefacePtr();

    for (auto character = text.getCharPointer(); ! character.isEmpty(); ++character)
    {
        juce::Array<int> glyphs;
        juce::Array<float> offsets;
        juce::Path outline;
        typeface->getGlyphPositions (juce::String::charToString (*character), glyphs, offsets);

        const auto isThere = ! glyphs.isEmpty() && glyphs.getFirst() >= 0
                             && typeface->getOutlineForGlyph (glyphs.getFirst(), outline) && ! outline.isEmpty();

        if (! isThere && ! character.isWhitespace())
            return false;
    }

    return true;
}
#endif

void makeReadable ([[maybe_unused]] const juce::String& text)
{
    // A later toolkit looks for a character in other typefaces by itself.
#if JUCE_MAJOR_VERSION < 8
    constexpr float anyHeight = 12.0f;

    if (hasCharacters (juce::Font (anyHeight), text))
        return;

    for (const auto& name : juce::Font::findAllTypefaceNames())
    {
        if (hasCharacters (juce::Font (name, anyHeight, juce::Font::plain), text))
        {
            juce::LookAndFeel::getDefaultLookAndFeel().setDefaultSansSerifTypefaceName (name);
            return;
        }
    }
#endif
}

} // namespace Typefaces
