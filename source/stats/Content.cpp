#include "stats/Content.h"

#include "device/DeviceChangeMessage.h"
#include "device/HostControllerList.h"
#include "events/EventDisplayWindow.h"
#include "platform/NativeDialogs.h"
#include "stats/Explanations.h"
#include "stats/StatisticsReport.h"
#include "text/InterfaceColours.h"
#include <algorithm>

namespace
{
constexpr int refreshIntervalMs = 250;
constexpr int throttleMs = 1;

constexpr int columnsX = 170;
constexpr int columnsY = 92;
constexpr int columnWidth = 150;
constexpr int rowHeight = 18;
constexpr int columnHeight = rowHeight * static_cast<int> (StatisticsLayout::numRows);
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

const juce::Colour statusColour (55, 55, 55);

juce::String describeSampleRate (std::uint32_t hz)
{
    return juce::String::formatted ("%d Hz", hz);
}

juce::String describeBufferSize (std::uint32_t samples)
{
    return juce::String::formatted ("%d samples", samples);
}

/** 0 while the sample rate is not known. */
double getBufferTimeMs (std::uint32_t samples, std::uint32_t hz)
{
    return hz == 0 ? 0.0 : samples / double (hz) * 1000.0;
}

juce::String describeBufferTime (std::uint32_t samples, std::uint32_t hz)
{
    return hz == 0 ? juce::String ("unknown") : juce::String::formatted ("%0.03f msec", getBufferTimeMs (samples, hz));
}

double getMsPerTick()
{
    LARGE_INTEGER frequency {};
    QueryPerformanceFrequency (&frequency);
    return 1000.0 / static_cast<double> (frequency.QuadPart);
}

/** A device's statistics where the driver has mapped them; null when it hasn't. */
const StatisticsBlock* getStatistics (std::uint32_t address)
{
    return reinterpret_cast<const StatisticsBlock*> (static_cast<std::uintptr_t> (address));
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

    setSize (getFullWidth(), viewHeight);
}

Content::~Content()
{
    stopTimer();
    deviceList.setListener (nullptr);
}

static void setLabelFont (juce::Label& label)
{
    label.setFont (label.getFont().withHeight (12.6f).boldened());
}

void Content::addStatusLabel (juce::Label& label, const juce::String& text)
{
    label.setText (text, juce::dontSendNotification);
    setLabelFont (label);
    label.setColour (juce::Label::textColourId, juce::Colours::white);
    label.setColour (juce::Label::backgroundColourId, statusColour);
    addAndMakeVisible (label);
}

void Content::addRowLabels()
{
    int y = columnsY;

    for (std::size_t i = 0; i < StatisticsLayout::numRows; ++i)
    {
        if (const auto& row = StatisticsLayout::rows[i]; row.label != nullptr)
        {
            const int x = row.isItem() ? itemLabelX : headerLabelX;
            auto* label = rowLabels.add (new juce::Label ({}, row.label));
            setLabelFont (*label);
            label->setBounds (x, y, labelsRight - x, rowHeight);
            label->setTooltip (row.isItem() ? Explanations::get (i).text : "");
            addAndMakeVisible (label);
        }

        y += rowHeight;
    }
}

void Content::addButton (ViewButton& button, int x, int y)
{
    button.setBounds (x, y, buttonWidth, buttonHeight);
    button.setMouseClickGrabsKeyboardFocus (false);
    button.setHasFocusOutline (true);
    button.addListener (this);
    addAndMakeVisible (button);
}

//==============================================================================
void Content::rebuildColumns()
{
    const juce::ScopedLock locked (columnLock);
    stopTimer();
    columns.clear();

    for (const auto& device : deviceList.getDevices())
    {
        device->reopen();

        auto column = std::make_unique<Column> (device->getName());
        const int x = columnsX + columnWidth * static_cast<int> (columns.size());
        column->setBounds (x, columnsY, columnWidth, columnHeight);
        column->setAccessible (false); // its notes are read instead
        addAndMakeVisible (*column);

        auto notes = std::make_unique<ColumnNotes> (*column,
                                                    device->getName(),
                                                    device->getCaps(),
                                                    [this] { return getBufferTimeMs (bufferSize, sampleRate); });
        addAndMakeVisible (*notes);
        columns.push_back ({ std::move (column), std::move (notes), device->getPath(), device->getCaps() });
    }

    startTimer (refreshIntervalMs);
}

int Content::getFullWidth() const
{
    return columnWidth * static_cast<int> (columns.size()) + columnsX + marginRight;
}

/** Counts the columns, not the list, which can be ahead of them: the view fits what it shows. */
void Content::updateWidth()
{
    setSize (getFullWidth(), getHeight());
}

/** Devices are found by their column, not by their position: between a change of the list and the message that
    tells of it, a position belongs to somebody else.
*/
HwDevice* Content::ShownDevice::findIn (const Devices& devices, std::size_t likelyPosition) const
{
    const auto isShown = [this] (const auto& candidate) { return candidate->getPath() == path; };

    if (likelyPosition < devices.size() && isShown (devices[likelyPosition]))
        return devices[likelyPosition].get();

    const auto device = std::find_if (devices.begin(), devices.end(), isShown);
    return device != devices.end() ? device->get() : nullptr;
}

void Content::refreshFirmwareCounters (const Devices& devices)
{
    const juce::ScopedLock locked (columnLock);

    // All before the first answer is waited for: the drivers answer at the same time, and wake nobody in between.
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (auto* device = columns[i].findIn (devices, i))
            device->askForFirmwareCounters();

    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        FirmwareCounters counters {};

        auto* device = columns[i].findIn (devices, i);
        const bool isAnswering = device != nullptr && device->readFirmwareCounters (counters) == 0;
        columns[i].notes->setAnswering (isAnswering);

        if (isAnswering)
            columns[i].column->setFirmwareCounters (counters);
    }
}

void Content::timerCallback()
{
    const juce::ScopedLock locked (columnLock);
    const auto start = juce::Time::getMillisecondCounter();
    const auto devices = deviceList.getDevices();
    const auto msPerTick = getMsPerTick();

    refreshFirmwareCounters (devices);

    for (std::size_t i = 0; i < columns.size(); ++i)
        if (const auto* device = columns[i].findIn (devices, i))
            device->readStatistics ([&, &column = *columns[i].column] (std::uint32_t address)
                                    { column.update (getStatistics (address), msPerTick); });

    if (! devices.empty())
        showStreamStatus (*devices.front());

    // A tick longer than the interval would starve painting on Windows.
    if (juce::Time::getMillisecondCounter() - start > juce::uint32 { refreshIntervalMs })
        if (auto* peer = getPeer())
            peer->performAnyPendingRepaintsNow();
}

void Content::showStreamStatus (HwDevice& newest)
{
    newest.readStreamStatus();

    if (const auto rate = newest.getSampleRate(); rate != sampleRate)
    {
        sampleRate = rate;
        sampleRateLabel.setText (describeSampleRate (rate), juce::dontSendNotification);
        updateBufferTimeLabel();
    }

    if (const auto size = newest.getBufferSize(); size != bufferSize)
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

    if (deviceList.getNumDevices() == 0)
        juce::JUCEApplication::quit();
    else if (changeThrottle.isTimerRunning())
        changeThrottle.isChangeWaiting = true;
    else
        followDevices();
}

void Content::followDevices()
{
    rebuildColumns();
    updateWidth();
    changeThrottle.startTimer (throttleMs);
}

void Content::ChangeThrottle::timerCallback()
{
    stopTimer();

    if (std::exchange (isChangeWaiting, false))
        content.followDevices();
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

/** Without a window manager, nobody else returns the keyboard. */
void Content::runModally (const std::function<void()>& modalCall)
{
    const SafePointer<Component> focused (getCurrentlyFocusedComponent());
    modalCall();

    auto* hadKeyboard = isParentOf (focused) ? focused.getComponent() : this;
    hadKeyboard->grabKeyboardFocus();
}

bool Content::keyPressed (const juce::KeyPress& key)
{
    if (key.getKeyCode() == juce::KeyPress::escapeKey)
        juce::JUCEApplication::quit();
    else if (key == juce::KeyPress ('c', juce::ModifierKeys::ctrlModifier, 0))
        juce::SystemClipboard::copyTextToClipboard (makeReport (juce::Time::getCurrentTime()));
    else
        return false;

    return true;
}

bool Content::ViewButton::keyPressed (const juce::KeyPress& key)
{
    return TextButton::keyPressed (key == juce::KeyPress::spaceKey ? juce::KeyPress (juce::KeyPress::returnKey) : key);
}

/** Keeps a Return that is the button's from the shortcut, which would take its release for a click on "Reset". */
bool Content::ViewButton::keyStateChanged (bool)
{
    return juce::KeyPress (juce::KeyPress::returnKey).isCurrentlyDown();
}

void Content::ViewButton::mouseDown (const juce::MouseEvent& event)
{
    getParentComponent()->grabKeyboardFocus();
    TextButton::mouseDown (event);
}

juce::String Content::makeReport (const juce::Time& time) const
{
    const juce::ScopedLock locked (columnLock);
    juce::String sections;

    for (const auto& shown : columns)
        shown.column->appendReport (sections, shown.caps);

    return StatisticsReport::make (time,
                                   HostControllerList(),
                                   sampleRate,
                                   bufferSize,
                                   bufferTimeLabel.getText(),
                                   sections);
}

void Content::saveStatisticsReport()
{
    const auto documents = juce::File::getSpecialLocation (juce::File::userDocumentsDirectory);

    // Windows names no folder at all when it has gone, and a file in no folder is one in the root of the drive.
    const bool saved = documents.isDirectory()
                       && StatisticsReport::append (documents.getChildFile ("Quendel report.txt"),
                                                    makeReport (juce::Time::getCurrentTime()));

    const auto watch = NativeDialogs::attend();
    juce::NativeMessageBox::showMessageBox (juce::MessageBoxIconType::NoIcon,
                                            "Quendel",
                                            saved ? "Report saved to your documents folder." : "Unable to save report");
}

//==============================================================================
void Content::resized()
{
    sampleRateLabel.setBounds (columnsX, sampleRateY, statusWidth, statusHeight);
    bufferSizeLabel.setBounds (columnsX, bufferSizeY, statusWidth, statusHeight);
    bufferTimeLabel.setBounds (columnsX, bufferTimeY, statusWidth, statusHeight);

    const int y = getHeight() - buttonsFromBottom;
    saveButton.setCentrePosition (getWidth() / 4, y);
    resetButton.setCentrePosition (getWidth() / 2, y);
    eventsButton.setCentrePosition (3 * getWidth() / 4, y);
}

void Content::paint (juce::Graphics& g)
{
    g.fillAll (InterfaceColours::ground);
    g.setColour (juce::Colours::white);

    // Clipping it to the figures that have changed would cost more.
    if (! getLocalBounds().reduced (1).contains (g.getClipBounds()))
        g.drawRect (0, 0, getWidth(), getHeight());

    g.setFont (g.getCurrentFont().withHeight (12.0f).boldened());
    const auto drawCaption = [&] (const char* text, int y)
    {
        g.drawFittedText (text,
                          columnsX - statusWidth,
                          y,
                          statusWidth,
                          statusHeight,
                          juce::Justification::centredLeft,
                          1,
                          0.7f);
    };

    drawCaption ("Sample rate", sampleRateY);
    drawCaption ("Buffer size", bufferSizeY);
    drawCaption ("Buffer time", bufferTimeY);
}
