#pragma once

#include "platform/linux/FileDescriptor.h"
#include <cstdint>
#include <memory>

/** A driver's section, mapped shared and read-only below 4 GiB until the object dies.

    Any thread; AccessGuard::readableBytes looks addresses up among the living sections.
*/
class Section
{
public:
    /** Maps the whole file that a driver handed over; null when it is no plain file or there is no room. */
    static std::unique_ptr<Section> map (FileDescriptor file);

    ~Section();

    std::uint32_t getAddress() const noexcept { return static_cast<std::uint32_t> (address); }

    /** Bytes that the file holds from an address in this section on; 0 when it lies outside. */
    std::size_t readableBytes (std::uintptr_t from) const noexcept;

    bool contains (std::uintptr_t other) const noexcept { return other >= address && other - address < length; }

private:
    Section (FileDescriptor sectionFile, std::uintptr_t mappedAddress, std::size_t mappedLength);

    FileDescriptor file;
    std::uintptr_t address;
    std::size_t length;
};
