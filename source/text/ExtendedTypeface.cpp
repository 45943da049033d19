#include "text/ExtendedTypeface.h"

#include "platform/FallbackTypeface.h"
#include <algorithm>

namespace
{
// A glyph's number has its typeface's index above its number there, which the toolkit has up to a character's.
constexpr int numberBits = 21;
constexpr int numberMask = (1 << numberBits) - 1;
constexpr std::size_t mostTypefaces = 1 << 9;

/** A character that no typeface has: each shows its sign for a missing one. */
constexpr juce::juce_wchar noCharacter = 0xFFFF;

/** What is drawn for a character that no typeface has. */
constexpr juce::juce_wchar replacement = 0xFFFD;

int getGlyph (juce::Typeface& typeface, juce::juce_wchar character)
{
    juce::Array<int> glyphs;
    juce::Array<float> offsets;
    typeface.getGlyphPositions (juce::String::charToString (character), glyphs, offsets);
    return glyphs.isEmpty() ? -1 : glyphs.getFirst();
}

bool hasCharacter (juce::Typeface& typeface, juce::juce_wchar character)
{
    const auto glyph = getGlyph (typeface, character);
    const auto none = getGlyph (typeface, noCharacter);

    if (glyph < 0 || glyph == none)
        return false;

    // Some number missing glyphs as if they were there: only the box that they all have tells.
    juce::Path outline, box;
    typeface.getOutlineForGlyph (glyph, outline);
    typeface.getOutlineForGlyph (none, box);
    return outline != box || juce::CharacterFunctions::isWhitespace (character);
}
} // namespace

ExtendedTypeface::ExtendedTypeface (const Ptr& own, const juce::Font& madeFor)
    : Typeface (own->getName(), own->getStyle()),
      // A font of its own: the one that this is made for will own it.
      font (madeFor.getTypefaceName(), madeFor.getTypefaceStyle(), madeFor.getHeight()),
      typefaces { own }
{
}

int ExtendedTypeface::findTypeface (juce::juce_wchar character)
{
    if (character < 0x80)
        return 0;

    if (const auto known = typefaceOf.find (character); known != typefaceOf.end())
        return known->second;

    const auto has = [character] (const auto& typeface) { return hasCharacter (*typeface, character); };
    auto found = std::ranges::find_if (typefaces, has);

    if (found == typefaces.end() && typefaces.size() < mostTypefaces)
        if (auto typeface = FallbackTypeface::find (character, font); typeface != nullptr && has (typeface))
            found = typefaces.insert (found, typeface);

    const auto index = found == typefaces.end() ? -1 : static_cast<int> (found - typefaces.begin());
    return typefaceOf[character] = index;
}

float ExtendedTypeface::getStringWidth (const juce::String& text)
{
    juce::Array<int> glyphs;
    juce::Array<float> offsets;
    getGlyphPositions (text, glyphs, offsets);
    return offsets.getLast();
}

void ExtendedTypeface::getGlyphPositions (const juce::String& text,
                                          juce::Array<int>& glyphs,
                                          juce::Array<float>& xOffsets)
{
    // Plain figures, which change all the time.
    if (text.getNumBytesAsUTF8() == static_cast<std::size_t> (text.length()))
        return own().getGlyphPositions (text, glyphs, xOffsets);

    float x = 0;
    xOffsets.add (x);

    for (auto begin = text.getCharPointer(); ! begin.isEmpty();)
    {
        const auto index = findTypeface (*begin);
        auto end = begin;
        int length = 0;

        for (; ! end.isEmpty() && findTypeface (*end) == index; ++end)
            ++length;

        const auto run = index >= 0 ? juce::String (begin, end)
                                    : juce::String::repeatedString (juce::String::charToString (replacement), length);
        juce::Array<int> runGlyphs;
        juce::Array<float> runOffsets;
        typefaces[static_cast<std::size_t> (juce::jmax (0, index))]->getGlyphPositions (run, runGlyphs, runOffsets);

        for (int i = 0; i < runGlyphs.size(); ++i)
        {
            glyphs.add (runGlyphs[i] < 0 ? runGlyphs[i] : runGlyphs[i] | (juce::jmax (0, index) << numberBits));
            xOffsets.add (x + runOffsets[i + 1]);
        }

        x = xOffsets.getLast();
        begin = end;
    }
}

/** Whose a glyph is, and its number there. */
std::pair<juce::Typeface&, int> ExtendedTypeface::locate (int glyph) const
{
    if (glyph < 0)
        return { own(), glyph };

    return { *typefaces[static_cast<std::size_t> (glyph >> numberBits)], glyph & numberMask };
}

bool ExtendedTypeface::getOutlineForGlyph (int glyph, juce::Path& path)
{
    const auto [typeface, number] = locate (glyph);
    return typeface.getOutlineForGlyph (number, path);
}

juce::EdgeTable*
    ExtendedTypeface::getEdgeTableForGlyph (int glyph, const juce::AffineTransform& transform, float fontHeight)
{
    const auto [typeface, number] = locate (glyph);
    return typeface.getEdgeTableForGlyph (number, transform, fontHeight);
}
