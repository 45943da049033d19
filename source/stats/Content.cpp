#include "stats/Content.h"

#include "device/DeviceChangeMessage.h"
#include "device/DeviceList.h"
#include "events/EventDisplayWindow.h"
#include "stats/StatisticsBlock.h"
#include <algorithm>

namespace
{
constexpr int refreshIntervalMs = 250;
constexpr juce::uint32 changesApartMs = 50;

constexpr int columnsX = 170;
constexpr int columnsY = 92;
constexpr int columnWidth = 150;
constexpr int rowHeight = 18;
constexpr int columnHeight = rowHeight * StatisticsLayout::numRows;
constexpr int marginRight = 20;
constexpr int headerLabelX = 20;
constexpr int itemLabelX = 40;
constexpr int labelsRight = 150;

constexpr int statusWidth = 112;
constexpr int statusHeight = 14;
constexpr int sampleRateY = 22;
constexpr int bufferSizeY = 40;
constexpr int bufferTimeY = 58;

constexpr int buttonsY = columnsY + columnHeight + rowHeight;
constexpr int buttonWidth = 70;
constexpr int buttonHeight = 26;
constexpr int buttonsFromBottom = 33;
constexpr int viewHeight = buttonsY + 38;

const juce::Colour backgroundColour (15, 15, 15);
const juce::Colour statusColour (55, 55, 55);

juce::String describeSampleRate (std::uint32_t hz)
{
    return juce::String::formatted ("%d Hz", hz);
}

juce::String describeBufferSize (std::uint32_t samples)
{
    return juce::String::formatted ("%d samples", samples);
}

/** A buffer has no time as long as nobody knows the sample rate. */
juce::String describeBufferTime (std::uint32_t samples, std::uint32_t hz)
{
    return hz == 0 ? juce::String ("unknown") : juce::String::formatted ("%0.03f msec", samples / double (hz) * 1000.0);
}

double getMsPerTick()
{
    LARGE_INTEGER frequency {};
    QueryPerformanceFrequency (&frequency);
    return 1000.0 / static_cast<double> (frequency.QuadPart);
}

/** The device's statistics where the driver has mapped them; null when it hasn't. */
const StatisticsBlock* getStatistics (const HwDevice& device)
{
    return reinterpret_cast<const StatisticsBlock*> (static_cast<std::uintptr_t> (device.getStatisticsAddress()));
}
} // namespace

//==============================================================================
Content::Content (DeviceList& devices) : Component ("stats content"), deviceList (devices)
{
    deviceList.setListener (this);
    setOpaque (true);
    setWantsKeyboardFocus (true);

    rebuildColumns();

    if (const auto device = deviceList.getDevice (0); device != nullptr)
    {
        device->readStreamStatus();
        sampleRate = device->getSampleRate();
        bufferSize = device->getBufferSize();
    }

    addStatusLabel (sampleRateLabel, describeSampleRate (sampleRate));
    addStatusLabel (bufferSizeLabel, describeBufferSize (bufferSize));
    addStatusLabel (bufferTimeLabel, describeBufferTime (bufferSize, sampleRate));
    addRowLabels();

    addButton (saveButton, 0, buttonsY);
    addButton (resetButton, 0, buttonsY);
    addButton (eventsButton, 0, buttonsY);
    resetButton.addShortcut (juce::KeyPress (juce::KeyPress::returnKey));

    setSize (100, viewHeight);
    updateWidth();
}

Content::~Content()
{
    stopTimer();
    deviceList.setListener (nullptr);
}

static juce::Font getLabelFont()
{
    return juce::Font (12.6f, juce::Font::bold);
}

void Content::addStatusLabel (juce::Label& label, const juce::String& text)
{
    label.setText (text, juce::dontSendNotification);
    label.setFont (getLabelFont());
    label.setColour (juce::Label::textColourId, juce::Colours::white);
    label.setColour (juce::Label::backgroundColourId, statusColour);
    addAndMakeVisible (label);
}

void Content::addRowLabels()
{
    int y = columnsY;

    for (const auto& row : StatisticsLayout::rows)
    {
        if (row.label != nullptr)
        {
            const int x = row.isItem ? itemLabelX : headerLabelX;
            auto* label = rowLabels.add (new juce::Label ({}, row.label));
            label->setFont (getLabelFont());
            label->setBounds (x, y, labelsRight - x, rowHeight);
            addAndMakeVisible (label);
        }

        y += rowHeight;
    }
}

void Content::addButton (ViewButton& button, int x, int y)
{
    button.setBounds (x, y, buttonWidth, buttonHeight);
    button.setMouseClickGrabsKeyboardFocus (false);
    button.addListener (this);
    addAndMakeVisible (button);
}

//==============================================================================
void Content::rebuildColumns()
{
    const juce::ScopedLock locked (columns.getLock());
    stopTimer();
    columns.clear();
    sources.clear();

    for (const auto& device : deviceList.getDevices())
    {
        device->reopen();

        auto* column = new Column (device->getName());
        column->setBounds (columnsX + columnWidth * columns.size(), columnsY, columnWidth, columnHeight);
        addAndMakeVisible (columns.add (column));
        sources.push_back ({ device->getPath(), device->getCaps() });
    }

    startTimer (refreshIntervalMs);
}

int Content::getFullWidth (int numColumns) const
{
    return columnWidth * numColumns + columnsX + marginRight;
}

void Content::updateWidth()
{
    setSize (getFullWidth (deviceList.getNumDevices()), getHeight());
    resized(); // also where the width stays: the list can have grown before the columns did
}

/** Devices are found by their column, not by their position: between a change of the list and the message that
    tells of it, a position belongs to somebody else.
*/
void Content::forEachColumn (const std::function<void (Column&, HwDevice&)>& action)
{
    const juce::ScopedLock locked (columns.getLock());

    const auto devices = deviceList.getDevices();

    for (std::size_t i = 0; i < sources.size(); ++i)
    {
        const auto isShown = [&] (const HwDevice::Ptr& device) { return device->getPath() == sources[i].path; };

        // Nearly always the position is right as well, and the search over at once.
        const auto start = i < devices.size() && isShown (devices[i])
                               ? devices.begin() + static_cast<std::ptrdiff_t> (i)
                               : devices.begin();

        if (const auto device = std::find_if (start, devices.end(), isShown); device != devices.end())
            action (*columns[static_cast<int> (i)], **device);
    }
}

void Content::refreshFirmwareCounters()
{
    forEachColumn (
        [] (Column& column, HwDevice& device)
        {
            FirmwareCounters counters;

            if (device.readFirmwareCounters (counters) == TransactionResult::success)
                column.setFirmwareCounters (counters.fifoLevel,
                                            counters.underruns,
                                            counters.overflows,
                                            counters.syncCount);
        });
}

void Content::timerCallback()
{
    const juce::ScopedLock locked (columns.getLock());
    const auto msPerTick = getMsPerTick();

    refreshFirmwareCounters();

    forEachColumn (
        [msPerTick] (Column& column, HwDevice& device)
        {
            column.update (getStatistics (device), msPerTick);
            column.repaint();
        });

    showStreamStatus();
}

void Content::showStreamStatus()
{
    const auto device = deviceList.getDevice (0);

    if (device == nullptr)
        return;

    device->readStreamStatus();

    if (const auto rate = device->getSampleRate(); rate != sampleRate)
    {
        sampleRate = rate;
        sampleRateLabel.setText (describeSampleRate (rate), juce::dontSendNotification);
        updateBufferTimeLabel();
    }

    if (const auto size = device->getBufferSize(); size != bufferSize)
    {
        bufferSize = size;
        bufferSizeLabel.setText (describeBufferSize (size), juce::dontSendNotification);
        updateBufferTimeLabel();
    }
}

void Content::updateBufferTimeLabel()
{
    bufferTimeLabel.setText (describeBufferTime (bufferSize, sampleRate), juce::dontSendNotification);
}

//==============================================================================
void Content::handleMessage (const juce::Message& message)
{
    const auto change = DeviceChangeMessage::getChange (message);

    if (change != DeviceArrivedMessage && change != DeviceRemovedMessage)
        return;

    // The toolkit delivers all messages before it looks at keys and clicks: when every change of a storm had columns of
    // its own, a user could not even quit.
    const bool isStorm = juce::Time::getMillisecondCounter() - followedAt < changesApartMs;

    if (! isStorm || deviceList.getNumDevices() == 0)
        followDevices();
    else if (! laterChange.isTimerRunning())
        laterChange.startTimer (changesApartMs);
}

void Content::LaterChange::timerCallback()
{
    content.followDevices();
}

void Content::followDevices()
{
    laterChange.stopTimer();

    if (deviceList.getNumDevices() == 0)
    {
        juce::JUCEApplication::quit();
        return;
    }

    rebuildColumns();
    updateWidth();
    followedAt = juce::Time::getMillisecondCounter();
}

void Content::buttonClicked (juce::Button* button)
{
    if (button == &resetButton)
    {
        resetStatistics();
    }
    else if (button == &saveButton)
    {
        refreshFirmwareCounters();
        runModally ([this] { saveStatisticsReport(); });
    }
    else if (button == &eventsButton)
    {
        runModally ([this] { openEventWindow(); });
    }
}

void Content::resetStatistics()
{
    for (const auto& device : deviceList.getDevices())
        device->resetStatistics();
}

void Content::openEventWindow()
{
    EventDisplayWindow (deviceList).runModalLoop();
}

/** Without a window manager nobody else gives the keyboard back. */
void Content::runModally (const std::function<void()>& modalCall)
{
    modalCall();
    grabKeyboardFocus();
}

bool Content::keyPressed (const juce::KeyPress& key)
{
    if (key.getKeyCode() != juce::KeyPress::escapeKey)
        return false;

    juce::JUCEApplication::quit();
    return true;
}

bool Content::ViewButton::keyPressed (const juce::KeyPress& key)
{
    if (key != juce::KeyPress::spaceKey)
        return false;

    triggerClick();
    return true;
}

//==============================================================================
int Content::getColumnsLeft() const
{
    const auto* first = columns[0];
    return first != nullptr ? first->getX() : columnsX;
}

void Content::resized()
{
    const int x = getColumnsLeft();
    sampleRateLabel.setBounds (x, sampleRateY, statusWidth, statusHeight);
    bufferSizeLabel.setBounds (x, bufferSizeY, statusWidth, statusHeight);
    bufferTimeLabel.setBounds (x, bufferTimeY, statusWidth, statusHeight);

    const int width = getFullWidth (columns.size());
    const int y = getHeight() - buttonsFromBottom;
    saveButton.setCentrePosition (width / 4, y);
    resetButton.setCentrePosition (width / 2, y);
    eventsButton.setCentrePosition (3 * width / 4, y);
}

void Content::paint (juce::Graphics& g)
{
    const int x = sampleRateLabel.getX() - statusWidth;

    g.fillAll (backgroundColour);
    g.setColour (juce::Colours::white);
    g.drawRect (0, 0, getWidth(), getHeight());

    g.setFont (juce::Font (12.0f, juce::Font::bold));
    const auto drawCaption = [&] (const char* text, int y)
    { g.drawFittedText (text, x, y, statusWidth, statusHeight, juce::Justification::centredLeft, 1, 0.7f); };

    drawCaption ("Sample rate", sampleRateY);
    drawCaption ("Buffer size", bufferSizeY);
    drawCaption ("Buffer time", bufferTimeY);
}
