#pragma once

#include "stats/StatisticsLayout.h"
#include <array>

/** What the figures tell, in words. */
namespace Explanations
{

/** What is said of a time that is at least so many buffer times long; it follows upon the time. */
struct Verdict
{
    double leastShare;
    const char* words;
};

struct Explanation
{
    /** What the figure is, what a bad one means and what helps. The table in the README has the same. */
    const char* text;
    std::array<Verdict, 3> verdicts {}; /**< The longest first; without words where there are fewer. */
};

/** @param row  that of a figure */
const Explanation& get (std::size_t row);

} // namespace Explanations
