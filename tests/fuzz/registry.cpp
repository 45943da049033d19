// Registry values: capability records and names of any size and content.

#include "device/DeviceList.h"
#include "device/DriverText.h"
#include "stats/StatisticsReport.h"
#include "tests/fuzz/Fuzz.h"

namespace
{

/** Keeps the last line that the list logs. */
struct LastLine : public DeviceList::LogSink
{
    void logMessage (const juce::String& message) override { line = message; }

    juce::String line;
};

bool isText (const juce::String& text)
{
    const auto bytes = text.toStdString();
    return juce::CharPointer_UTF8::isValidString (bytes.data(), static_cast<int> (bytes.size()));
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static const TestMachine machine;
    const auto registry = std::filesystem::path (machine.getPath()) / "interfaces/device/registry";
    std::filesystem::create_directories (registry);

    FuzzedDataProvider input (data, size);
    const auto name = input.ConsumeRandomLengthString (maximumTextLength);
    const auto record = input.ConsumeRemainingBytes<std::uint8_t>();
    writeFile (registry / "unique_name", name);
    writeFile (registry / "hwinfo_caps", record);

    LastLine log;
    const DeviceList devices (0, nullptr, nullptr, &log);
    const auto device = devices.getDevice (0);
    require (device != nullptr, "the interface is found");

    const auto& caps = device->getCaps();
    require (caps.getVendorId() < 1u << 24, "vendors have 24 bits");
    require (record.size() <= sizeof (HwInfoCaps) || (caps.getVendorId() == 0 && caps.getNumProbeWords() == 0),
             "a record that is too long is none");

    for (const auto version : { caps.getArmVersion(), caps.getDspVersion(), caps.getFpgaVersion() })
        require (StatisticsReport::formatFirmwareVersion (version).containsOnly ("0123456789."),
                 "a version is numbers");

    require (isText (device->getName()), "a name is text");
    require (name.size() <= 64 || device->getName() == HwDevice::defaultName, "a name that is too long is none");
    require (log.line.startsWith ("Found device " + device->getName() + "  vendor:0x"), "the log has the whole name");

    const auto text = textFromDriver (reinterpret_cast<const char*> (data), size);
    require (isText (text), "the driver's text is text");
    require (text.length() <= static_cast<int> (size), "no character comes from nowhere");
    require (text.isEmpty() == (size == 0 || data[0] == 0), "no text is lost");
    return 0;
}
