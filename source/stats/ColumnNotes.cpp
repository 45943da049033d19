#include "stats/ColumnNotes.h"

#include "stats/Explanations.h"
#include "stats/StatisticsReport.h"
#include "text/DisplayText.h"

using namespace StatisticsLayout;

/** One item of the list. */
class ColumnNotes::Note : public juce::Component, public juce::TooltipClient
{
public:
    Note (const juce::String& title, Text textToRead, Text tipToShow)
        : text (std::move (textToRead)),
          tip (std::move (tipToShow))
    {
        setTitle (title);
    }

    juce::String getTooltip() override { return tip(); }

private:
    struct Value : public juce::AccessibilityTextValueInterface
    {
        explicit Value (const Note& ownerNote) : owner (ownerNote) {}
        bool isReadOnly() const override { return true; }
        juce::String getCurrentValueAsString() const override { return owner.text(); }
        void setValueAsString (const juce::String&) override {}

        const Note& owner;
    };

    struct Handler : public juce::AccessibilityHandler
    {
        explicit Handler (Note& ownerNote)
            : AccessibilityHandler (ownerNote,
                                    juce::AccessibilityRole::listItem,
                                    {},
                                    { std::make_unique<Value> (ownerNote) }),
              owner (ownerNote)
        {
        }

        juce::String getHelp() const override { return owner.tip(); }

        Note& owner;
    };

    std::unique_ptr<juce::AccessibilityHandler> createAccessibilityHandler() override
    {
        return std::make_unique<Handler> (*this);
    }

    const Text text, tip;
};

//==============================================================================
ColumnNotes::ColumnNotes (const Column& columnToExplain,
                          const juce::String& deviceName,
                          const HwInfoCaps& deviceCaps,
                          std::function<double()> findBufferTime)
    : column (columnToExplain),
      name (deviceName),
      caps (deviceCaps),
      getBufferTime (std::move (findBufferTime))
{
    setTitle (name);
    setAlpha (0); // otherwise the toolkit clips to each note, which paints nothing
    setPaintingIsUnclipped (true);
    setFocusContainerType (FocusContainerType::focusContainer); // otherwise the toolkit reports no children
    add (
        "Interface",
        [this] { return name; },
        [this] { return describeDevice(); });
    const char* group = "";

    for (std::size_t row = 0; row < numRows; ++row)
        if (rows[row].kind == RowKind::header)
            group = rows[row].label;
        else if (rows[row].isItem())
            add (
                juce::String (group) + ": " + rows[row].label,
                [this, row] { return column.getText (row); },
                [this, row] { return judge (row); });

    setBounds (column.getBounds());
}

ColumnNotes::~ColumnNotes() = default;

void ColumnNotes::add (const juce::String& title, Text text, Text tip)
{
    addAndMakeVisible (notes.add (new Note (title, std::move (text), std::move (tip))));
}

void ColumnNotes::resized()
{
    notes[0]->setBounds (column.getBox (0));

    for (std::size_t i = 0; i < valueRows.size(); ++i)
        notes[static_cast<int> (i) + 1]->setBounds (column.getBox (valueRows[i]));
}

std::unique_ptr<juce::AccessibilityHandler> ColumnNotes::createAccessibilityHandler()
{
    return std::make_unique<juce::AccessibilityHandler> (*this, juce::AccessibilityRole::list);
}

void ColumnNotes::setAnswering (bool isAnswering)
{
    if (isAnswering)
        silentSince.reset();
    else if (! silentSince)
        silentSince = juce::Time::getCurrentTime();
}

//==============================================================================
juce::String ColumnNotes::describeDevice() const
{
    juce::String text;
    text << DisplayText::fromName (name) << "\n";
    text << juce::String::formatted ("Vendor %06x, type %x", caps.getVendorId(), caps.getTypeId()) << "\n";
    text << "ARM code " << StatisticsReport::formatFirmwareVersion (caps.getArmVersion());

    if (caps.hasDsp())
        text << ", DSP code " << StatisticsReport::formatFirmwareVersion (caps.getDspVersion());

    if (caps.hasFpga())
        text << ", FPGA code " << StatisticsReport::formatFirmwareVersion (caps.getFpgaVersion());

    if (silentSince)
        text << "\n"
             << "No answer since " << silentSince->formatted ("%H:%M:%S");

    return text;
}

/** What a time says about the stream, or what it is when the buffer time is not known. */
juce::String ColumnNotes::judge (std::size_t row) const
{
    const auto value = column.getValue (row), bufferTime = getBufferTime();

    const auto& [text, verdicts] = Explanations::get (row);

    if (value > 0 && bufferTime > 0)
        for (const auto& [leastShare, words] : verdicts)
            if (words != nullptr && value >= leastShare * bufferTime)
                return juce::String (value, 1) + " ms " + words;

    return text;
}
