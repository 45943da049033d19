#include "tests/unit/support/LooksLike.h"
#include "text/DisplayText.h"
#include "text/TextLook.h"

#include <gtest/gtest.h>

namespace
{

juce::String utf8 (const char8_t* text)
{
    return juce::String::fromUTF8 (reinterpret_cast<const char*> (text));
}

/** Draws a text at the left edge of an image; what does not fit into its width is cut off. */
juce::Image paint (const juce::String& text, int width = 300)
{
    juce::Image image (juce::Image::SingleChannel, width, 40, true);
    juce::Graphics g (image);
    g.setFont (g.getCurrentFont().withHeight (30.0f).boldened());
    g.setColour (juce::Colours::white);
    g.drawText (text, 0, 0, 1000, 40, juce::Justification::centredLeft, false);
    return image;
}

struct ScopedTextLook
{
    ScopedTextLook() { use (&look); }
    ~ScopedTextLook() { use (nullptr); }

    static void use (TextLook* lookToUse)
    {
        juce::LookAndFeel::setDefaultLookAndFeel (lookToUse);
        juce::Typeface::clearTypefaceCache();
    }

    TextLook look;
};

TEST (TextTests, everyLetterOfFiveScriptsIsDrawnAsItselfAndLatinStaysAsItWas)
{
    constexpr int widthOfLatin = 30;
    const auto latin = utf8 (u8"ażł");
    const auto before = paint (latin, widthOfLatin);

    const ScopedTextLook look;
    const auto all = latin + utf8 (u8"Жשمم東京");
    EXPECT_TRUE (looksLike (paint (all, widthOfLatin), before));

    // A letter that no typeface has is drawn as this box, or as nothing.
    std::vector<juce::Image> seen { paint (juce::String::charToString (0xFFFF)), paint ({}) };

    for (const auto* letter : { u8"ż", u8"Ж", u8"ש", u8"م", u8"東", u8"京" })
    {
        const auto picture = paint (utf8 (letter));

        for (const auto& other : seen)
            EXPECT_FALSE (looksLike (picture, other)) << reinterpret_cast<const char*> (letter);

        seen.push_back (picture);
    }
}

TEST (TextTests, namesAreOnOneLineAndInTheOrderInWhichTheyAreDrawn)
{
    constexpr bool isOursToOrder = JUCE_MAJOR_VERSION < 8;
    const auto mark = utf8 (u8"\u200E"); // before and after what the toolkit reorders

    for (const auto& [name, drawn] : { std::pair { u8"", u8"" },
                                       { u8"Deck 2 (b)", u8"Deck 2 (b)" },
                                       { u8"A\r\nB\tC\u202ED", u8"A  B CD" },
                                       { u8"東京 12", u8"東京 12" } })
        EXPECT_EQ (DisplayText::fromName (utf8 (name)), utf8 (drawn));

    for (const auto& [name, drawn] : { std::pair { u8"אבג", u8"גבא" },
                                       { u8"אב 12.5 (ג)!", u8"(ג) 12.5 בא!" },
                                       { u8"Deck אב ג, 1a", u8"Deck 1 ,ג באa" },
                                       { u8"שָב", u8"בשָ" },
                                       { u8"مرحبا", u8"\uFE8E\uFE92\uFEA3\uFEAE\uFEE3" },
                                       { u8"سلام", u8"\uFEE1\uFEFC\uFEB3" },
                                       { u8"لا گ", u8"\uFB92 \uFEFB" } })
        EXPECT_EQ (DisplayText::fromName (utf8 (name)), isOursToOrder ? utf8 (drawn) : mark + utf8 (name) + mark);
}

} // namespace
