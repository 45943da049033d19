#include "platform/FallbackTypeface.h"

#include "platform/Win32.h"
#include <algorithm>
#include <mlang.h>
#include <optional>
#include <vector>

namespace
{
/** For questions about fonts; nothing is drawn on it. */
struct Device
{
    ~Device() { DeleteDC (handle); }
    const HDC handle = CreateCompatibleDC (nullptr);
};

bool hasCharacter (const Device& device, const LOGFONTW& description, WCHAR character)
{
    constexpr WORD noGlyph = 0xFFFF;
    auto glyph = noGlyph;

    if (auto* font = CreateFontIndirectW (&description))
    {
        auto* previous = SelectObject (device.handle, font);
        GetGlyphIndicesW (device.handle, &character, 1, &glyph, GGI_MARK_NONEXISTING_GLYPHS);
        SelectObject (device.handle, previous);
        DeleteObject (font);
    }

    return glyph != noGlyph;
}

/** The typeface that the system itself would choose. */
std::optional<LOGFONTW> findLinkedFont (const Device& device, WCHAR character)
{
    // IID_IMLangFontLink2, which mingw's libraries lack.
    constexpr IID linksId { 0xDCCFC162, 0x2B38, 0x11D2, { 0xB7, 0xEC, 0x00, 0xC0, 0x4F, 0x8F, 0x5D, 0x9A } };
    IMLangFontLink2* links = nullptr;

    if (FAILED (CoCreateInstance (CLSID_CMultiLanguage,
                                  nullptr,
                                  CLSCTX_INPROC_SERVER,
                                  linksId,
                                  reinterpret_cast<void**> (&links))))
        return {};

    std::optional<LOGFONTW> found;
    HFONT font = nullptr;

    if (SUCCEEDED (links->MapFont (device.handle, 0, character, &font)))
    {
        LOGFONTW description {};

        if (GetObjectW (font, sizeof (description), &description) != 0)
            found = description;

        links->ReleaseFont (font);
    }

    links->Release();
    return found;
}

//==============================================================================
int CALLBACK addFont (const LOGFONTW* description, const TEXTMETRICW*, DWORD type, LPARAM fonts)
{
    const bool isVertical = description->lfFaceName[0] == '@';

    if ((type & RASTER_FONTTYPE) == 0 && ! isVertical)
        reinterpret_cast<std::vector<LOGFONTW>*> (fonts)->push_back (*description);

    return 1;
}

/** How different a typeface looks from the interface's own, which has no serifs. */
int getUnlikeness (const LOGFONTW& description)
{
    switch (description.lfPitchAndFamily & 0xF0)
    {
        case FF_SWISS:
            return 0;
        case FF_DONTCARE:
            return 1;
        case FF_ROMAN:
        case FF_MODERN:
            return 2;
        default:
            return 3;
    }
}

/** All typefaces of the machine, the most similar first. */
std::vector<LOGFONTW> findAllFonts (const Device& device)
{
    LOGFONTW any {};
    any.lfCharSet = DEFAULT_CHARSET;
    std::vector<LOGFONTW> fonts;
    EnumFontFamiliesExW (device.handle, &any, addFont, reinterpret_cast<LPARAM> (&fonts), 0);
    std::ranges::stable_sort (fonts, {}, getUnlikeness);
    return fonts;
}
} // namespace

juce::Typeface::Ptr FallbackTypeface::find (juce::juce_wchar character, const juce::Font& font)
{
    if (character > 0xFFFF)
        return {};

    const auto unit = static_cast<WCHAR> (character);
    const Device device;
    auto found = findLinkedFont (device, unit);

    if (! found || ! hasCharacter (device, *found, unit))
    {
        const auto fonts = findAllFonts (device);
        const auto first =
            std::ranges::find_if (fonts,
                                  [&] (const auto& candidate) { return hasCharacter (device, candidate, unit); });

        if (first == fonts.end())
            return {};

        found = *first;
    }

    return juce::Typeface::createSystemTypefaceFor (
        juce::Font (juce::String (found->lfFaceName), font.getTypefaceStyle(), font.getHeight()));
}
