// A driver's section of any size and content, which may go while it is mapped.

#include "platform/linux/Section.h"
#include "stats/Column.h"
#include "stats/StatisticsBlock.h"
#include "tests/fuzz/Fuzz.h"

#include <cmath>
#include <fcntl.h>
#include <sys/mman.h>

namespace
{

/** What a column shows must be numbers, whatever the driver says. */
void requireNumbers (const Column& column)
{
    for (std::size_t row = 0; row < StatisticsLayout::numRows; ++row)
    {
        const auto text = column.getText (row);
        const bool isNumber = text.containsAnyOf ("0123456789") && std::isfinite (text.getDoubleValue());
        require (StatisticsLayout::rows[row].isItem() ? isNumber : text.isEmpty(),
                 "rows of figures show finite numbers, the others nothing");
    }
}

} // namespace

int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using namespace StatisticsLayout;

    constexpr std::size_t playbackCountRow = 1, hostMaximumRow = 15;
    FuzzedDataProvider input (data, size);
    std::array<std::uint32_t, 4> counters {};
    input.ConsumeData (counters.data(), sizeof (counters));
    const std::size_t options = input.ConsumeIntegral<std::uint8_t>();
    const auto content = input.ConsumeRemainingBytes<std::uint8_t>();

    require (Section::make (FileDescriptor (::open ("/dev/zero", O_RDONLY))) == nullptr, "only files are mapped");
    FileDescriptor memory (::memfd_create ("section", MFD_CLOEXEC));
    require (::write (memory.get(), content.data(), content.size()) >= 0, "there is memory for a section");
    const FileDescriptor driversOwn (::dup (memory.get()));
    const auto section = Section::make (std::move (memory));
    require (section != nullptr, "a memory file of any size is mapped");

    // A driver may hand out any address at all in its section, even an odd one.
    const auto offset = options % std::max<std::size_t> (1, content.size());
    const auto address = section->getAddress() + static_cast<std::uintptr_t> (offset);
    const auto* block = reinterpret_cast<const StatisticsBlock*> (address);

    Column column ("device");
    constexpr double msPerTick = 0.0001;
    StatisticsBlock before {};
    before.playbackBufferCount = 4711;
    column.update (&before, msPerTick);
    column.setFirmwareCounters (counters[0], counters[1], counters[2], counters[3]);
    column.update (block, msPerTick);
    requireNumbers (column);

    require (column.getText (overflowRow) == juce::String (counters[2])
                 && column.getText (underrunRow) == juce::String (counters[1])
                 && column.getText (syncCountRow) == juce::String (counters[3]),
             "the firmware's counts are shown as they are");

    std::int32_t count = before.playbackBufferCount;
    constexpr auto countOffset = offsetof (StatisticsBlock, playbackBufferCount);

    if (offset + countOffset + sizeof (count) <= content.size())
        std::memcpy (&count, content.data() + offset + countOffset, sizeof (count));

    require (column.getText (playbackCountRow) == juce::String (count),
             "a figure comes from its field or keeps its value");

    require (::ftruncate (driversOwn.get(), 0) == 0, "a section can be cut");
    const auto shown = column.getText (hostMaximumRow);
    column.update (block, msPerTick);
    requireNumbers (column);
    require (column.getText (hostMaximumRow) == shown, "figures keep their values when the section goes");
    return 0;
}
