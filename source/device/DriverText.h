#pragma once

#include "platform/SystemText.h"
#include <cstring>

/** Text of the driver's or the system's. */
inline juce::String textFromDriver (const std::string& text)
{
    return SystemText::decode (text);
}

/** The same of up to numBytes bytes, ended by the first zero byte if there is one. */
inline juce::String textFromDriver (const char* bytes, std::size_t numBytes)
{
    return textFromDriver (std::string (bytes, ::strnlen (bytes, numBytes)));
}
