#pragma once

#include <functional>
#include <juce_core/juce_core.h>

/** Describes each element and joins the descriptions. */
template <typename Range, typename Describe>
juce::String join (const Range& range, const char* separator, const Describe& describe)
{
    juce::StringArray texts;

    for (const auto& element : range)
        texts.add (std::invoke (describe, element));

    return texts.joinIntoString (separator);
}
