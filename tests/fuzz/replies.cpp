// A driver that answers requests with arbitrary bytes and sections.

#include "device/DeviceList.h"
#include "events/EventList.h"
#include "events/EventReport.h"
#include "stats/Column.h"
#include "tests/fuzz/Fuzz.h"

#include <deque>
#include <utility>

using namespace DriverProtocol;
using Reply = Machine::Reply;

namespace
{

/** One scripted answer. */
struct Answer
{
    explicit Answer (FuzzedDataProvider& input) : flags (input.ConsumeIntegral<std::uint8_t>())
    {
        constexpr std::uint8_t isSuccess = 8;

        // Most answers must be successes, or the rest of their bytes would not matter.
        if ((flags & isSuccess) != 0)
            packet.resize (sizeof (std::uint32_t));

        const auto bytes = input.ConsumeBytes<std::uint8_t> (input.ConsumeIntegral<std::uint16_t>() % 1024);
        packet.insert (packet.end(), bytes.begin(), bytes.end());
    }

    bool hasSection() const { return (flags & 7) != 0; }
    bool isSectionHuge() const { return (flags & 7) == 3; }
    bool cutsSection() const { return (flags & 16) != 0; }

    std::uint8_t flags;
    Machine::Bytes packet;
};

/** When it runs out of answers the driver closes the connection. */
void setAnswers (TestDriver& driver, std::deque<Answer> answers)
{
    driver.setOverride (
        [&section = driver.getSection(), answers, sectionGoes = false] (auto, auto) mutable -> std::optional<Reply>
        {
            constexpr std::size_t moreThanFits = std::size_t { 1 } << 33;

            // Happens at the request after the one that asks for it.
            if (sectionGoes)
                section.cut();

            if (answers.empty())
                return Reply {};

            auto answer = std::move (answers.front());
            answers.pop_front();
            sectionGoes = answer.cutsSection();

            if (answer.hasSection())
            {
                section = Machine::Section (answer.isSectionHuge() ? moreThanFits : answer.packet.size());
                section.write (answer.packet.data(), answer.packet.size());
            }

            return Reply { std::move (answer.packet), answer.hasSection() };
        });
}

/** Checks that table and report have every event. */
void requireWholeLog (EventList& list)
{
    const auto numEvents = list.getNumRows();

    for (const auto header : { EventList::nameColumn, EventList::deltaColumn, EventList::timeColumn })
        list.sortOrderChanged (header, true);

    for (int row = 0; row < numEvents; ++row)
        require (list.getCellText (row, EventList::timeColumn).isNotEmpty(), "every event has a time");

    static const juce::TemporaryFile temporary;
    const auto& file = temporary.getFile();
    EventReport::write (file, list.getEvents(), list.getDeviceNames(), [] (double) { return true; });
    auto lines = juce::StringArray::fromLines (file.loadFileAsString());
    lines.removeEmptyStrings();
    require (lines.size() == numEvents, "each event has a line");

    for (const auto& line : lines)
    {
        const auto fields = juce::StringArray::fromTokens (line, ",", "");
        require (fields.size() == 5, "a line has five fields");
        require (! (fields[1] + fields[2]).containsAnyOf ("naif"), "times are numbers or a question mark");
    }
}

/** What the program does with a device, and what must hold whatever the answer was. */
constexpr void (*operations[]) (HwDevice&) {
    [] (HwDevice& device)
    {
        device.open();
        device.close();
    },
    [] (HwDevice& device) { device.reopen(); },
    [] (HwDevice& device)
    {
        const auto getStatus = [&device] { return std::pair (device.getSampleRate(), device.getBufferSize()); };
        const auto before = getStatus();
        require (device.readStreamStatus() == 0 || getStatus() == before, "a status that cannot be read stays");
    },
    [] (HwDevice& device)
    {
        const FirmwareCounters before { 1, 2, 3, 4, 5 };
        auto counters = before;
        require (device.readFirmwareCounters (counters) == 0 || counters == before,
                 "counters that cannot be read stay");
    },
    [] (HwDevice& device) { device.probe(); },
    [] (HwDevice& device) { device.resetStatistics(); },
    [] (HwDevice& device)
    {
        EventLogEntry entry {};
        require (device.readEventEntry (6, entry) == 0 || (entry.timestamp == 6 && entry.type == 0),
                 "a request that fails brings nothing");
    },
    [] (HwDevice& device)
    {
        EventList events ({ HwDevice::Ptr (&device) }, 0);
        require (events.getDeviceNames().size() == 1, "every log has its device's name");
        requireWholeLog (events);
    }
};

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    juce::MessageManager::getInstance(); // makes this the message thread

    // Both live until the process ends.
    static const auto& machine = *new TestMachine;
    static auto& driver = *new TestDriver (machine);

    FuzzedDataProvider input (data, size);
    std::vector<std::uint8_t> record (sizeof (HwInfoCaps));
    input.ConsumeData (record.data() + offsetof (CapabilityRecord, firstProbeCount), 8);
    writeFile (std::filesystem::path (machine.getPath()) / "interfaces/device/registry/hwinfo_caps", record);

    const auto chosen = input.ConsumeRandomLengthString (maximumTextLength);
    std::deque<Answer> answers;

    while (input.remaining_bytes() > 0)
        answers.emplace_back (input);

    setAnswers (driver, std::move (answers));
    driver.forgetRecords();

    // The first list opens the toolkit's message queue, which stays open.
    static const auto firstEvents = std::make_unique<EventList> (std::vector<HwDevice::Ptr>(), -1);
    const auto numDescriptors = countOfProcess ("fd");

    {
        DeviceList devices;
        require (devices.getNumDevices() == 1, "the interface is found");
        const auto device = devices.getDevice (0);
        Column column (device->getName());
        device->open();

        for (const auto operation : chosen)
        {
            operations[static_cast<std::uint8_t> (operation) % std::size (operations)](*device);

            const auto address = static_cast<std::uintptr_t> (device->getStatisticsAddress());
            column.update (reinterpret_cast<const StatisticsBlock*> (address), 0.0001);

            for (const auto row : StatisticsLayout::valueRows)
                require (! column.getText (row).containsAnyOf ("naif"), "a figure is neither nan nor inf");
        }
    }

    // A driver closes its end of a connection some time after the program has closed its own.
    require (waitFor ([&] { return countOfProcess ("fd") == numDescriptors; }), "no descriptor stays behind");
    return 0;
}
