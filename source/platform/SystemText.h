#pragma once

#include <juce_core/juce_core.h>
#include <string>

namespace SystemText
{

/** 8-bit text as the system's calls hand it out: on Windows in the active code page, which they converted it to,
    elsewhere in UTF-8. Bytes that are neither are taken for Latin-1, so that a name is never lost. Any thread.
*/
juce::String decode (const std::string& bytes);

} // namespace SystemText
