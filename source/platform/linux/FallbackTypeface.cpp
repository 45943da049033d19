#include "platform/FallbackTypeface.h"

#include <fontconfig/fontconfig.h>
#include <memory>

template <auto destroy>
struct Destroyer
{
    template <typename Object>
    void operator() (Object* object) const
    {
        destroy (object);
    }
};

juce::Typeface::Ptr FallbackTypeface::find (juce::juce_wchar character, const juce::Font& font)
{
    using Pattern = std::unique_ptr<FcPattern, Destroyer<FcPatternDestroy>>;

    const std::unique_ptr<FcCharSet, Destroyer<FcCharSetDestroy>> characters (FcCharSetCreate());
    FcCharSetAddChar (characters.get(), static_cast<FcChar32> (character));

    const auto* family = reinterpret_cast<const FcChar8*> ("sans-serif");
    const Pattern wanted (FcPatternBuild (nullptr,
                                          FC_CHARSET,
                                          FcTypeCharSet,
                                          characters.get(),
                                          FC_FAMILY,
                                          FcTypeString,
                                          family,
                                          FC_WEIGHT,
                                          FcTypeInteger,
                                          font.isBold() ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR,
                                          FC_OUTLINE,
                                          FcTypeBool,
                                          FcTrue,
                                          FC_COLOR,
                                          FcTypeBool,
                                          FcFalse,
                                          nullptr));
    FcConfigSubstitute (nullptr, wanted.get(), FcMatchPattern);
    FcDefaultSubstitute (wanted.get());

    FcResult result {};
    const Pattern found (FcFontMatch (nullptr, wanted.get(), &result));
    FcChar8* file = nullptr;

    if (found == nullptr || FcPatternGetString (found.get(), FC_FILE, 0, &file) != FcResultMatch)
        return {};

    // From memory, as the toolkit passes over collections (.ttc) on disk. Of those it takes the first typeface.
    juce::MemoryBlock data;

    if (! juce::File (juce::String::fromUTF8 (reinterpret_cast<const char*> (file))).loadFileAsData (data))
        return {};

    return juce::Typeface::createSystemTypefaceFor (data.getData(), data.getSize());
}
