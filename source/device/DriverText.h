#pragma once

#include <cstring>
#include <juce_core/juce_core.h>
#include <string>
#include <vector>

/** Text of up to numBytes bytes from the driver or the registry, ended by the first zero byte if there is one.

    Meant to be UTF-8; bytes that aren't are taken for Latin-1, so that a name is never lost.
*/
inline juce::String textFromDriver (const char* bytes, std::size_t numBytes)
{
    const std::string text (bytes, ::strnlen (bytes, numBytes));

    if (juce::CharPointer_UTF8::isValidString (text.data(), static_cast<int> (text.size())))
    {
        const auto utf8 = juce::String::fromUTF8 (text.data(), static_cast<int> (text.size()));

        // The toolkit also takes surrogates, and longer forms than a character needs.
        std::size_t shortest = 0;
        bool hasSurrogate = false;

        for (auto i = utf8.getCharPointer(); ! i.isEmpty(); ++i)
        {
            shortest += juce::CharPointer_UTF8::getBytesRequiredFor (*i);
            hasSurrogate = hasSurrogate || (*i >= 0xD800 && *i <= 0xDFFF);
        }

        if (shortest == text.size() && ! hasSurrogate)
            return utf8;
    }

    std::vector<juce::juce_wchar> latin;

    for (const auto byte : text)
        latin.push_back (static_cast<unsigned char> (byte));

    return { juce::CharPointer_UTF32 (latin.data()), latin.size() };
}
