#include "platform/SystemText.h"

#include <vector>

namespace SystemText
{

juce::String decode (const std::string& bytes)
{
    const auto size = static_cast<int> (bytes.size());

    if (juce::CharPointer_UTF8::isValidString (bytes.data(), size))
    {
        const auto utf8 = juce::String::fromUTF8 (bytes.data(), size);

        // The toolkit also takes surrogates, and longer forms than a character needs.
        std::size_t shortest = 0;
        bool hasSurrogate = false;

        for (auto i = utf8.getCharPointer(); ! i.isEmpty(); ++i)
        {
            shortest += juce::CharPointer_UTF8::getBytesRequiredFor (*i);
            hasSurrogate = hasSurrogate || (*i >= 0xD800 && *i <= 0xDFFF);
        }

        if (shortest == bytes.size() && ! hasSurrogate)
            return utf8;
    }

    std::vector<juce::juce_wchar> latin;

    for (const auto byte : bytes)
        latin.push_back (static_cast<unsigned char> (byte));

    return { juce::CharPointer_UTF32 (latin.data()), latin.size() };
}

} // namespace SystemText
