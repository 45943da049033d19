// Event logs of any content, in the table and in the report.

#include "events/EventList.h"
#include "events/EventReport.h"
#include "tests/fuzz/Fuzz.h"

namespace
{

/** Independent of the order. */
std::uint64_t sumOf (const juce::Array<EventRecord>& events)
{
    std::uint64_t sum = 0;

    for (const auto& event : events)
        sum += static_cast<std::uint64_t> (event.timestamp) * 31 + event.param * std::uint64_t { 17 }
               + event.deviceOrdinal;

    return sum;
}

std::ptrdiff_t countOf (char character, const juce::String& text)
{
    const auto bytes = text.toStdString();
    return std::count (bytes.begin(), bytes.end(), character);
}

void requireWholeLines (const juce::String& report,
                        const juce::Array<EventRecord>& events,
                        const juce::StringArray& names)
{
    juce::String namesInIt;

    for (const auto& event : events)
        if (event.param != 0xFFFFFFFF)
            namesInIt << names[event.deviceOrdinal];

    require (events.isEmpty() || report.endsWith ("\r\n"), "a line has its end");
    require (countOf ('\n', report) == events.size() + countOf ('\n', namesInIt), "a line has one end");
    require (countOf (',', report) == 4 * events.size() + countOf (',', namesInIt), "a line has five fields");

    if (! namesInIt.containsAnyOf ("fa"))
        require (! report.contains (",nan,") && ! report.contains (",-nan,") && ! report.contains ("inf,"),
                 "a line's times are numbers or a question mark");
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static const FuzzFolder folder;
    static const juce::File report ((folder.getRoot() / "report.txt").string());
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
    require (std::ranges::is_sorted (events, {}, &EventRecord::timestamp), "the time line goes forwards");

    EventList list (events, names);

    for (const int columnId : { EventList::nameColumn, EventList::deltaColumn, EventList::timeColumn })
    {
        list.sortOrderChanged (columnId, (sum & 1) != 0);
        const auto& shown = list.getEvents();
        require (columnId == EventList::nameColumn    ? std::ranges::is_sorted (shown, {}, &EventRecord::type)
                 : columnId == EventList::deltaColumn ? std::ranges::is_sorted (shown, {}, &EventRecord::timeDelta)
                                                      : std::ranges::is_sorted (shown, {}, &EventRecord::timestamp),
                 "a click on a header sorts by its column");
        require (shown.size() == events.size() && sumOf (shown) == sum, "sorting loses nothing");

        for (int row = 0; row < shown.size(); ++row)
            for (int cell = EventList::indexColumn; cell <= EventList::nameColumn; ++cell)
                require (cell == EventList::lastSimilarDeltaColumn || list.getCellText (row, cell).isNotEmpty(),
                         "every cell says something");
    }

    EventReport::write (report, list.getEvents(), names, [] (double) { return true; });
    requireWholeLines (report.loadFileAsString(), list.getEvents(), names);

    return 0;
}
