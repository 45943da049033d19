#include "stats/Explanations.h"

#include <algorithm>

namespace Explanations
{

static constexpr std::array<Verdict, 3> longestBuffer {
    { { 2.0, "is more than twice the buffer time: a buffer came late." },
      { 1.5, "is well above the buffer time: a buffer came late." },
      { 0.0, "is no more than a buffer may take: none came late." } }
};

static constexpr std::array<Verdict, 3> usualBuffer {
    { { 1.1, "is above the buffer time: buffers came late, or it has changed since the last reset." },
      { 0.9, "is the buffer time, as it should be." },
      { 0.0, "is below the buffer time, which has changed since the last reset." } }
};

/** In the order of the figures. */
static constexpr std::array<Explanation, StatisticsLayout::valueRows.size()> explanations { {
    { "Buffers played since the last reset. It stands still when nothing is streaming." },
    { "The longest time from one played buffer to the next. Well above the buffer time, a buffer came late: ASIO "
      "wakeup "
      "and ASIO host tell who was slow.",
      longestBuffer },
    { "The usual time from one played buffer to the next, which should be the buffer time.", usualBuffer },

    { "Buffers recorded since the last reset. It stands still when nothing is streaming." },
    { "The longest time from one recorded buffer to the next. Well above the buffer time, a buffer came late: ASIO "
      "wakeup and ASIO host tell who was slow.",
      longestBuffer },
    { "The usual time from one recorded buffer to the next, which should be the buffer time.", usualBuffer },

    { "The longest that the host waited to be woken for a buffer. When it is high the system let the host wait: look "
      "for "
      "other drivers and power saving.",
      { { { 1.0, "is more than the buffer time: the system let the host wait for too long." },
          { 0.5, "is more than half of the buffer time, and little was left for the host." },
          { 0.0, "has left the host enough of the buffer time." } } } },
    { "How long the host usually waits to be woken, which should be a small part of the buffer time.",
      { { { 0.25, "is more than a quarter of the buffer time, which the host lacks for every buffer." },
          { 0.0, "is a small part of the buffer time, as it should be." } } } },

    { "The longest that the host took for a buffer. Above the buffer time it was too slow: use larger buffers or fewer "
      "plug-ins.",
      { { { 1.0, "is more than the buffer time: the host was too slow." },
          { 0.75, "is near the buffer time: the host was nearly too slow." },
          { 0.0, "is well within the buffer time: the host was fast enough." } } } },
    { "How long the host usually takes for a buffer. Near the buffer time it is about to be too slow.",
      { { { 1.0, "is more than the buffer time: the host is too slow." },
          { 0.75, "is near the buffer time: the host is about to be too slow." },
          { 0.0, "is well within the buffer time: the host is fast enough." } } } },

    { "How far apart playback and record were, at most. It should stay near the average." },
    { "How far apart playback and record were, at least. It should stay near the average." },
    { "How far apart playback and record usually are, negative when playback is the earlier one. A period is taken off "
      "offsets of more than half of one." },

    { "How full the interface's own buffer is. It should stay near the middle: empty or full, audio is lost." },
    { "How often the interface had nowhere to put audio. Each time a gap was heard: when all times are in order, try "
      "another clock source." },
    { "How often the interface had no audio to play. Each time a gap was heard: when all times are in order, try "
      "another clock source." },
    { "How often the interface had to find the bus's clock again. When it goes up, look at the cable and the clock "
      "source." },
} };

static_assert (explanations.back().text != nullptr, "every figure has its explanation");

const Explanation& get (std::size_t row)
{
    const auto& figures = StatisticsLayout::valueRows;
    return explanations.at (static_cast<std::size_t> (std::ranges::find (figures, row) - figures.begin()));
}

} // namespace Explanations
