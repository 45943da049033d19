#pragma once

#include "stats/Column.h"
#include "tests/fuzz/Fuzz.h"
#include <cmath>

/** True when text begins with a number that is one, and not "nan" or "inf". */
inline bool beginsWithFiniteNumber (const juce::String& text)
{
    const auto bytes = text.toStdString();
    char* end = nullptr;
    const auto number = std::strtod (bytes.c_str(), &end);
    return end != bytes.c_str() && std::isfinite (number);
}

/** What a column shows must be numbers, whatever the driver says. */
inline void requireNumbers (const Column& column)
{
    for (std::size_t row = 0; row < StatisticsLayout::numRows; ++row)
        require (StatisticsLayout::rows[row].isItem() ? beginsWithFiniteNumber (column.getText (row))
                                                      : column.getText (row).isEmpty(),
                 "rows of figures show finite numbers, the others nothing");
}
