// Event logs of any content, in the table and in the report.

#include "events/EventList.h"
#include "events/EventReport.h"
#include "tests/fuzz/Fuzz.h"

namespace
{

template <auto field>
bool isSorted (const juce::Array<EventRecord>& events)
{
    return std::is_sorted (events.begin(),
                           events.end(),
                           [] (const EventRecord& a, const EventRecord& b) { return a.*field < b.*field; });
}

/** Independent of the order. */
std::uint64_t sumOf (const juce::Array<EventRecord>& events)
{
    std::uint64_t sum = 0;

    for (const auto& event : events)
        sum += static_cast<std::uint64_t> (event.timestamp) * 31 + event.param * std::uint64_t { 17 }
               + event.deviceOrdinal;

    return sum;
}

int countOf (juce::juce_wchar character, const juce::String& text)
{
    int count = 0;

    for (auto position = text.getCharPointer(); ! position.isEmpty();)
        count += position.getAndAdvance() == character ? 1 : 0;

    return count;
}

void requireWholeLine (const juce::String& line, const EventRecord& event, const juce::StringArray& names)
{
    const auto name = event.param != 0xFFFFFFFF ? names[event.deviceOrdinal] : juce::String();
    require (line.endsWith ("\r\n"), "a line has its end");
    require (countOf ('\n', line) == 1 + countOf ('\n', name), "a line has one end");
    require (countOf (',', line) == 4 + countOf (',', name), "a line has five fields");
    require (! line.contains (",nan,") && ! line.contains (",-nan,") && ! line.contains ("inf,"),
             "a line's times are numbers or a question mark");
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input (data, size);
    juce::StringArray names;
    juce::Array<EventRecord> events;

    for (int i = input.ConsumeIntegral<std::uint8_t>() % 4; --i >= 0;)
    {
        const auto name = input.ConsumeRandomLengthString (maximumTextLength);
        names.add (juce::String::createStringFromData (name.data(), static_cast<int> (name.size())));
    }

    while (input.remaining_bytes() > 0)
    {
        EventRecord event;
        event.timestamp = input.ConsumeIntegral<std::int64_t>();
        event.frequency = input.ConsumeIntegral<std::int64_t>();
        event.type = input.ConsumeIntegral<std::int8_t>();
        event.param = input.ConsumeIntegral<std::uint32_t>();
        event.deviceOrdinal = input.ConsumeIntegral<std::uint8_t>();
        event.auxValue = input.ConsumeIntegral<std::int8_t>();
        events.add (event);
    }

    const auto sum = sumOf (events);
    EventList::orderByTime (events);
    require (isSorted<&EventRecord::timestamp> (events), "the time line goes forwards");

    EventList list (events, names);

    for (const int columnId : { EventList::nameColumn, EventList::deltaColumn, EventList::timeColumn })
    {
        list.sortOrderChanged (columnId, (sum & 1) != 0);
        const auto& shown = list.getEvents();
        require (columnId == EventList::nameColumn    ? isSorted<&EventRecord::type> (shown)
                 : columnId == EventList::deltaColumn ? isSorted<&EventRecord::timeDelta> (shown)
                                                      : isSorted<&EventRecord::timestamp> (shown),
                 "a click on a header sorts by its column");
        require (shown.size() == events.size() && sumOf (shown) == sum, "sorting loses nothing");

        for (int row = 0; row < shown.size(); ++row)
        {
            for (const int cell : { EventList::indexColumn,
                                    EventList::timeColumn,
                                    EventList::deltaColumn,
                                    EventList::paramColumn,
                                    EventList::nameColumn })
                require (list.getCellText (row, cell).isNotEmpty(), "every cell says something");

            requireWholeLine (EventReport::formatLine (row, shown[row], shown[0], names), shown[row], names);
        }
    }

    return 0;
}
