#pragma once

#include <juce_graphics/juce_graphics.h>
#include <unordered_map>
#include <utility>
#include <vector>

/** A typeface that takes the characters that it lacks, and only those, from others of the system's. Message thread. */
class ExtendedTypeface : public juce::Typeface
{
public:
    /** @param own     has its characters first, and the say in everything that is one for all
        @param font    what it was made for
    */
    ExtendedTypeface (const Ptr& own, const juce::Font& font);

    float getAscent() const override { return own().getAscent(); }
    float getDescent() const override { return own().getDescent(); }
    float getHeightToPointsFactor() const override { return own().getHeightToPointsFactor(); }
    bool isHinted() const override { return own().isHinted(); }
    float getStringWidth (const juce::String&) override;
    void getGlyphPositions (const juce::String&, juce::Array<int>& glyphs, juce::Array<float>& xOffsets) override;
    bool getOutlineForGlyph (int glyph, juce::Path&) override;
    juce::EdgeTable* getEdgeTableForGlyph (int glyph, const juce::AffineTransform&, float fontHeight) override;

private:
    Typeface& own() const { return *typefaces.front(); }
    int findTypeface (juce::juce_wchar);
    std::pair<Typeface&, int> locate (int glyph) const;

    const juce::Font font;
    std::vector<Ptr> typefaces;
    std::unordered_map<juce::juce_wchar, int> typefaceOf; // of characters that were looked for, an index

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (ExtendedTypeface)
};
