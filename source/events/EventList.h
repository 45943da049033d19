#pragma once

#include "device/HwDevice.h"
#include "events/EventRecord.h"
#include <juce_gui_basics/juce_gui_basics.h>
#include <vector>

/** A driver's event log, or several merged in time, read once and shown as a table. Message thread; while its
    modal progress window is up, the report's worker thread reads the records, which nobody changes meanwhile.
*/
class EventList : public juce::TableListBox, public juce::TableListBoxModel
{
public:
    enum ColumnId
    {
        indexColumn = 1,
        timeColumn,
        deltaColumn,
        lastSimilarDeltaColumn,
        paramColumn,
        nameColumn
    };

    /** Reads the logs, one request per entry: this takes its time, in which devices can come and go and positions in
        the DeviceList change. So the lists of one window are made from the devices that there were at one moment.

        @param devices      in the list's order
        @param deviceIndex  the one to read, or negative for all of them
    */
    EventList (const std::vector<HwDevice::Ptr>& devices, int deviceIndex);

    const juce::Array<EventRecord>& getEvents() const { return events; }

    /** Names of the devices that were read; an event's deviceOrdinal is its device's index. */
    const juce::StringArray& getDeviceNames() const { return deviceNames; }

    /** A cell's text; empty in a column that has none. The index is the row's, all else is the event's there. */
    juce::String getCellText (int rowNumber, int columnId) const;

    /** What the event at a point of the table means; empty where there is none. */
    juce::String getTipAt (juce::Point<int>) const;

    /** What a screen reader says for a row. */
    juce::String getNameForRow (int rowNumber) override;

    /** Puts the selected rows on the clipboard, as the report has them; nothing when there are none. */
    void copySelectedRows() const;

    /** Writes the events in their present order to a file, on a worker thread behind a modal window. */
    void writeReport (const juce::File& file);

    int getNumRows() override { return events.size(); }
    void paintRowBackground (juce::Graphics&, int rowNumber, int width, int height, bool rowIsSelected) override;
    void paintCell (juce::Graphics&, int rowNumber, int columnId, int width, int height, bool rowIsSelected) override;
    void sortOrderChanged (int newSortColumnId, bool isForwards) override;

private:
    void readDeviceLog (HwDevice& device, std::uint8_t deviceOrdinal);
    void orderByTime();
    void addColumns();

    juce::Array<EventRecord> events;
    juce::StringArray deviceNames;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (EventList)
};
