#include "events/EventList.h"

#include "events/EventNames.h"
#include "events/EventReport.h"
#include "events/SaveReportTask.h"
#include "text/DisplayText.h"

//==============================================================================
namespace
{
/** Orders records by one of their fields. Compares, never subtracts: any two values are possible. */
template <auto field>
struct OrderBy
{
    static int compareElements (const EventRecord& a, const EventRecord& b)
    {
        return a.*field < b.*field ? -1 : (b.*field < a.*field ? 1 : 0);
    }
};

template <auto field>
void sortBy (juce::Array<EventRecord>& events)
{
    OrderBy<field> order;
    events.sort (order);
}
} // namespace

//==============================================================================
EventList::EventList (const std::vector<HwDevice::Ptr>& devices, int deviceIndex) : TableListBox ("event list", nullptr)
{
    setHasFocusOutline (true);
    setColour (backgroundColourId, juce::Colours::white); // below the last row, too

    const auto first = static_cast<std::size_t> (juce::jmax (0, deviceIndex));
    const auto end = deviceIndex < 0 ? devices.size() : first + 1;

    for (auto i = first; i < end; ++i)
        readDeviceLog (*devices[i], static_cast<std::uint8_t> (i - first));

    orderByTime();
    setTitle ("Events of " + deviceNames.joinIntoString (", "));
    setModel (this);
    addColumns();
}

void EventList::readDeviceLog (HwDevice& device, std::uint8_t deviceOrdinal)
{
    for (std::uint32_t index = 0; index < DriverProtocol::MaxEventsPerDevice; ++index)
    {
        DriverProtocol::EventLogEntry entry {};

        if (device.readEventEntry (index, entry) != 0 || entry.type == DriverProtocol::noSuchEntry)
            break;

        EventRecord record;
        record.timestamp = entry.timestamp;
        record.frequency = entry.frequency;
        record.type = static_cast<std::int32_t> (entry.type);
        record.param = entry.param;
        record.deviceOrdinal = deviceOrdinal;
        record.auxValue = entry.auxValue;
        events.add (record);
    }

    deviceNames.add (device.getName());
}

/** Also gives each event the time since the one before it. */
void EventList::orderByTime()
{
    sortBy<&EventRecord::timestamp> (events);

    for (int i = 1; i < events.size(); ++i)
        events.getReference (i).timeDelta =
            Ticks::difference (events.getReference (i).timestamp, events.getReference (i - 1).timestamp);
}

void EventList::addColumns()
{
    auto& tableHeader = getHeader();
    tableHeader.addColumn ("Index", indexColumn, 100);
    tableHeader.addColumn ("Msec", timeColumn, 100);
    tableHeader.addColumn ("Time Delta", deltaColumn, 100);
    tableHeader.addColumn ("Last Similar Delta", lastSimilarDeltaColumn, 100);
    tableHeader.addColumn ("Param", paramColumn, 150);
    tableHeader.addColumn ("Event Name", nameColumn, 200);
}

//==============================================================================
void EventList::paintRowBackground (juce::Graphics& g, int rowNumber, int width, int height, bool rowIsSelected)
{
    const bool isListenComplete = events[rowNumber].type == EventNames::listenComplete;

    g.setColour (rowIsSelected      ? juce::Colours::lightblue
                 : isListenComplete ? juce::Colours::pink
                                    : juce::Colours::white);
    g.fillRect (0, 0, width, height);
}

juce::String EventList::getCellText (int rowNumber, int columnId) const
{
    const auto event = events[rowNumber];

    switch (columnId)
    {
        case indexColumn:
            return juce::String::formatted ("%d(%d)", rowNumber, event.auxValue);

        case timeColumn:
            return event.hasTime() ? juce::String::formatted ("%.3f", event.eventTimeMs()) : juce::String ("?");

        case deltaColumn:
            return event.hasTime() ? juce::String::formatted ("%.0f", event.timeDeltaUs()) : juce::String ("?");

        case paramColumn:
            // Signed, unlike in the report: beyond 128 interfaces the table names none.
            return DisplayText::fromName (deviceNames[static_cast<std::int8_t> (event.deviceOrdinal)])
                   + juce::String::formatted (":%x", event.param);

        case nameColumn:
            return EventNames::get (event.type);

        default:
            return {};
    }
}

void EventList::paintCell (juce::Graphics& g, int rowNumber, int columnId, int width, int height, bool)
{
    const bool isText = columnId == paramColumn || columnId == nameColumn;

    g.setColour (juce::Colours::black);
    g.drawText (getCellText (rowNumber, columnId),
                0,
                0,
                width,
                height,
                isText ? juce::Justification::centredLeft : juce::Justification::centred);
}

/** Always ascending, whichever way the header's mark points. */
void EventList::sortOrderChanged (int newSortColumnId, bool)
{
    switch (newSortColumnId)
    {
        case timeColumn:
            sortBy<&EventRecord::timestamp> (events);
            break;

        case deltaColumn:
            sortBy<&EventRecord::timeDelta> (events);
            break;

        case nameColumn:
            sortBy<&EventRecord::type> (events);
            break;

        default:
            return;
    }

    repaint();
}

juce::String EventList::getTipAt (juce::Point<int> point) const
{
    const int row = getRowContainingPosition (point.x, point.y);

    if (point.y < getHeaderHeight() || ! juce::isPositiveAndBelow (row, events.size()))
        return {};

    const auto type = events.getReference (row).type;
    return EventNames::get (type) + ": " + EventNames::explain (type);
}

juce::String EventList::getNameForRow (int rowNumber)
{
    juce::StringArray texts;

    for (const auto column : { nameColumn, timeColumn, deltaColumn, paramColumn })
        texts.add (getHeader().getColumnName (column) + " " + getCellText (rowNumber, column));

    return texts.joinIntoString (", ");
}

void EventList::copySelectedRows() const
{
    juce::String lines;

    for (int i = 0; i < getNumSelectedRows(); ++i)
        lines << EventReport::getLine (events, getSelectedRow (i), deviceNames);

    if (lines.isNotEmpty())
        juce::SystemClipboard::copyTextToClipboard (lines);
}

void EventList::writeReport (const juce::File& file)
{
    SaveReportTask (file, events, deviceNames).runModally();
}
