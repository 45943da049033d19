#include "benchmarks/Ratio.h"
#include "events/EventReport.h"

#include <cstdio>
#include <random>

namespace
{

juce::Array<EventRecord> makeRecords (int count)
{
    std::mt19937_64 random (1);
    juce::Array<EventRecord> records;

    for (int i = 0; i < count; ++i)
        records.add ({ .timestamp = static_cast<std::int64_t> (random() >> 4),
                       .frequency = 10000000,
                       .timeDelta = static_cast<std::int64_t> (random() % 100000),
                       .type = static_cast<std::int32_t> (random() % 24),
                       .param = static_cast<std::uint32_t> (random()) });

    return records;
}

/** A report of 131072 rows, against the same lines from snprintf and fwrite with as many opens. */
void writeReport (benchmark::State& state)
{
    const auto records = makeRecords (131072);
    const juce::StringArray names { "Deck" };
    const juce::TemporaryFile ours (".txt"), plain (".txt");

    measureRatio (
        state,
        1.2,
        [&] { EventReport::write (ours.getFile(), records, names, [] (double) { return true; }); },
        [&]
        {
            const auto path = plain.getFile().getFullPathName();
            std::string text;
            std::remove (path.toRawUTF8());

            const auto append = [&]
            {
                auto* file = std::fopen (path.toRawUTF8(), "ab");
                std::fwrite (text.data(), 1, text.size(), file);
                std::fclose (file);
                text.clear();
            };

            for (int i = 0; i < records.size(); ++i)
            {
                const auto& r = records.getReference (i);
                char line[256];
                const auto length =
                    std::snprintf (line,
                                   sizeof (line),
                                   "%06d,%.3f,%.0f,%s:%d,%s\r\n",
                                   i,
                                   static_cast<double> (r.timestamp - records.getReference (0).timestamp) * 1000.0
                                       / static_cast<double> (r.frequency),
                                   static_cast<double> (r.timeDelta) * 1000000.0 / static_cast<double> (r.frequency),
                                   "Deck",
                                   static_cast<std::int32_t> (r.param),
                                   "Isoc Q DPC signaled");
                text.append (line, static_cast<std::size_t> (length));

                if (i % 256 == 0)
                    append();
            }

            append();
        });
}

BENCHMARK (writeReport)->UseManualTime()->Unit (benchmark::kMillisecond);

} // namespace
