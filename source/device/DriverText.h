#pragma once

#include "platform/SystemText.h"
#include <cstring>

/** Text of the driver's or the system's: up to numBytes bytes, ended by the first zero byte if there is one. */
inline juce::String textFromDriver (const char* bytes, std::size_t numBytes)
{
    return SystemText::decode (std::string (bytes, ::strnlen (bytes, numBytes)));
}

/** An interface's path, each byte a character: paths that differ stay different, whatever text they would make. */
inline juce::String pathFromSystem (const std::string& path)
{
    juce::String text;

    for (const auto byte : path)
        text += static_cast<juce::juce_wchar> (static_cast<unsigned char> (byte));

    return text;
}
