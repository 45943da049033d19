#include "drivers/pipewire/KernelLog.h"
#include "drivers/pipewire/MachineCheck.h"
#include "drivers/pipewire/Sysfs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace
{
using namespace PipeWire;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/** A folder with invented files of the kernel. */
class PipeWireSystemTests : public testing::Test
{
protected:
    ~PipeWireSystemTests() override { fs::remove_all (root); }

    void write (const std::string& file, const std::string& text) const
    {
        fs::create_directories ((root / file).parent_path());
        std::ofstream (root / file) << text << "\n";
    }

    std::string pattern = (fs::temp_directory_path() / "quendel-test-XXXXXX").string();
    const fs::path root = ::mkdtemp (pattern.data());
};

TEST_F (PipeWireSystemTests, theKernelsComplaintsAreThoseOfItsFireWireDrivers)
{
    const auto pipe = (root / "kmsg").string();
    EXPECT_EQ (KernelLog (pipe).getDescriptor(), -1);
    ASSERT_EQ (::mkfifo (pipe.c_str(), 0600), 0);

    const KernelLog log (pipe);
    EXPECT_EQ (log.read(), Lines());
    std::ofstream (pipe) << "3,950,33,-;snd-bebob fw1.0: Detect discontinuity of CIP: 10 50\n"
                            " SUBSYSTEM=firewire\n"
                            "5,951,34,-;firewire_ohci 0000:05:00.0: isochronous cycle inconsistent\n";
    EXPECT_EQ (log.read(), (Lines { "fw1.0", "0000:05:00.0" }));

    constexpr auto* card = "/devices/pci0000:00/0000:05:00.0/fw1/fw1.0/sound/card2";
    EXPECT_TRUE (isBelow (card, "fw1.0") && isBelow (card, "0000:05:00.0"));
    EXPECT_FALSE (isBelow (card, "fw1.1") || isBelow ("", "fw1.0"));

    // Routine messages, other drivers' complaints, lines that the kernel did not write, and incomplete ones.
    for (const auto* line : { "5,952,35,-;firewire_core 0000:05:00.0: created device fw1: GUID 000a3500ada83262, S400",
                              "3,953,36,-;usb 1-1: device descriptor read/64, error -71",
                              "11,954,37,-;snd-bebob fw1.0: Detect discontinuity of CIP: 10 50",
                              "3,955,38,-;snd-bebob",
                              "3",
                              "" })
        EXPECT_EQ (findComplaint (line), "") << line;
}

TEST_F (PipeWireSystemTests, controllersAndIdsAreReadFromTheKernelsTree)
{
    const std::string pci = "bus/pci/devices/0000:", fireWire = "bus/firewire/devices/fw1/";

    for (const auto& [file, text] : { std::pair { pci + "05:00.0/class", "0x0c0010" },
                                      { pci + "03:00.0/class", "0x0c0010" },
                                      { pci + "03:00.0/vendor", "0x104c" },
                                      { pci + "03:00.0/device", "0x8025" },
                                      { pci + "03:00.0/subsystem_vendor", "0x1043" },
                                      { pci + "03:00.0/subsystem_device", "0x0001" },
                                      { pci + "03:00.0/revision", "0x1" },
                                      { pci + "00:01.0/class", "0x0c0330" }, // USB
                                      { fireWire + "vendor", "0x000a35" },
                                      { fireWire + "model", "0x10000d" } })
        write (file, text);

    EXPECT_EQ (findHostControllers (root),
               (Lines { "PCI\\VEN_104C&DEV_8025&SUBSYS_00011043&REV_01\\0000:03:00.0",
                        "PCI\\VEN_0000&DEV_0000&SUBSYS_00000000&REV_00\\0000:05:00.0" }));

    const auto ids = readFireWireIds (root, "/devices/fw-bridge/0000:05:00.0/fw1/fw1.0/sound/card2");
    EXPECT_EQ (ids.vendor, 0x000a35u);
    EXPECT_EQ (ids.model, 0x10000du);
    EXPECT_EQ (readFireWireIds (root, "/devices/pci0000:00/usb1/1-1").vendor, 0u);
    EXPECT_TRUE (findHostControllers (root / "nothing").empty());
    EXPECT_EQ (parseId ("65536"), 65536u);

    for (const auto* text : { "", "0x", "12x", "-1", "99999999999", "0x123456789" })
        EXPECT_EQ (parseId (text), 0u) << text;
}

TEST_F (PipeWireSystemTests, onlyWhatIsWrongWithTheMachineIsSaid)
{
    const auto writeLoop = [this] (const std::string& process, const std::string& policy)
    {
        std::string status = process + " (data-loop.0 (x)) S 1";

        for (int field = 5; field < 41; ++field)
            status += " 0";

        write ("proc/" + process + "/comm", "pipewire");
        write ("proc/" + process + "/task/9/comm", "data-loop.0");
        write ("proc/" + process + "/task/9/stat", status + " " + policy + " 0");
    };

    EXPECT_EQ (checkMachine (root), Lines());
    writeLoop ("7", "1");
    write ("proc/7/limits", "Max realtime priority     0                    0");
    write ("proc/interrupts", "           CPU0       CPU1\n 16:    10    0   IO-APIC  16-fasteoi   firewire_ohci");
    write ("sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", "performance");
    EXPECT_EQ (checkMachine (root), Lines());

    writeLoop ("8", "0");
    write ("proc/8/limits", "Max nice priority         0     0\nMax realtime priority     0     0");
    write ("proc/interrupts",
           " 16:    10    0   IO-APIC  16-fasteoi   firewire_ohci, ehci_hcd:usb1\n 17: 0 0   X  i801, y");
    write ("sys/devices/system/cpu/cpu1/cpufreq/scaling_governor", "powersave");
    EXPECT_EQ (checkMachine (root),
               (Lines { "the data loop of pipewire (process 8) has no real-time priority",
                        "the limits of pipewire (process 8) forbid real-time priority: rtprio is 0",
                        "processors save power: their governor is \"powersave\", not \"performance\"",
                        "interrupt 16 is shared: firewire_ohci, ehci_hcd:usb1" }));

    // Limits that allow real-time priority are no complaint.
    write ("proc/8/limits", "Max realtime priority     95    95");
    EXPECT_EQ (checkMachine (root).size(), 3u);
}

} // namespace
