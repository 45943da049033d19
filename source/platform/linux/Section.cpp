#include "platform/linux/Section.h"

#include "platform/AccessGuard.h"
#include <algorithm>
#include <limits>
#include <mutex>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <vector>

namespace
{

/** The living sections, and where the next one is looked for. */
struct Sections
{
    std::mutex lock;
    std::vector<const Section*> living;
    std::uintptr_t nextAddress = firstAddress;

    static constexpr std::uintptr_t firstAddress = 0x10000000;
    static constexpr std::uintptr_t endOfAddresses = 0x100000000;
    static constexpr std::uintptr_t step = 0x10000;

    static Sections& get()
    {
        static Sections sections;
        return sections;
    }
};

/** A plain file's size in bytes; none for anything else. */
std::optional<std::size_t> sizeOfFile (const FileDescriptor& file) noexcept
{
    struct stat status = {};

    if (::fstat (file.get(), &status) != 0 || ! S_ISREG (status.st_mode))
        return {};

    return static_cast<std::size_t> (status.st_size);
}

/** Takes the first free address from a cursor on that only comes round once all have been used: an address kept from
    a section that is gone faults instead of showing another device's figures.
*/
std::uintptr_t mapBelow4GiB (Sections& sections, const FileDescriptor& file, std::size_t length) noexcept
{
    const auto span = (length + Sections::step - 1) / Sections::step * Sections::step;
    const auto attempts = (Sections::endOfAddresses - Sections::firstAddress) / Sections::step;

    if (length > Sections::endOfAddresses - Sections::firstAddress)
        return 0;

    for (std::uintptr_t i = 0; i < attempts; ++i)
    {
        if (Sections::endOfAddresses - sections.nextAddress < span)
            sections.nextAddress = Sections::firstAddress;

        const auto wanted = sections.nextAddress;
        sections.nextAddress += Sections::step;

        auto* mapped = ::mmap (reinterpret_cast<void*> (wanted),
                               length,
                               PROT_READ,
                               MAP_SHARED | MAP_FIXED_NOREPLACE,
                               file.get(),
                               0);

        if (mapped == MAP_FAILED)
        {
            if (errno == EEXIST)
                continue;

            return 0; // no other address would do either
        }

        if (reinterpret_cast<std::uintptr_t> (mapped) == wanted)
        {
            sections.nextAddress = wanted + span;
            return wanted;
        }

        ::munmap (mapped, length); // a kernel that doesn't know the flag took the address for a hint
    }

    return 0;
}

} // namespace

Section::Section (FileDescriptor mappedFile, std::uintptr_t mappedAddress, std::size_t mappedLength)
    : file (std::move (mappedFile)),
      address (mappedAddress),
      length (mappedLength)
{
}

std::unique_ptr<Section> Section::make (FileDescriptor file)
{
    const auto size = sizeOfFile (file);

    if (! size)
        return nullptr;

    // An empty section has an address too; reading it faults.
    const auto length = std::max<std::size_t> (1, *size);
    auto& sections = Sections::get();
    const std::scoped_lock locked (sections.lock);
    const auto address = mapBelow4GiB (sections, file, length);

    if (address == 0)
        return nullptr;

    std::unique_ptr<Section> section (new Section (std::move (file), address, length));
    sections.living.push_back (section.get());
    return section;
}

Section::~Section()
{
    auto& sections = Sections::get();
    const std::scoped_lock locked (sections.lock);
    std::erase (sections.living, this);
    ::munmap (reinterpret_cast<void*> (address), length);
}

std::size_t Section::readableBytes (std::uintptr_t from) const noexcept
{
    const auto end = address + std::min (length, sizeOfFile (file).value_or (0));
    return from >= address && from < end ? end - from : 0;
}

std::size_t AccessGuard::readableBytes (const void* address) noexcept
{
    const auto from = reinterpret_cast<std::uintptr_t> (address);
    auto& sections = Sections::get();
    const std::scoped_lock locked (sections.lock);

    for (const auto* section : sections.living)
        if (section->contains (from))
            return section->readableBytes (from);

    return std::numeric_limits<std::size_t>::max();
}
