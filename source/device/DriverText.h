#pragma once

#include "platform/SystemText.h"
#include <cstring>

/** Text of up to numBytes bytes from the driver or the registry, ended by the first zero byte if there is one. */
inline juce::String textFromDriver (const char* bytes, std::size_t numBytes)
{
    return SystemText::decode (std::string (bytes, ::strnlen (bytes, numBytes)));
}
