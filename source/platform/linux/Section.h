#pragma once

#include "posix/FileDescriptor.h"
#include <cstdint>
#include <memory>

/** A driver's section, mapped below 4 GiB, whole, shared and read-only, until the object dies.

    Any thread; AccessGuard::readableBytes looks addresses up among the living sections.
*/
class Section
{
public:
    /** Null when the file that a driver handed over is no plain file or there is no room. */
    static std::unique_ptr<Section> make (FileDescriptor file);

    ~Section();

    std::uint32_t getAddress() const noexcept { return static_cast<std::uint32_t> (address); }

    /** Bytes that the file holds from an address in this section on; 0 when it lies outside. */
    std::size_t readableBytes (std::uintptr_t from) const noexcept;

    bool contains (std::uintptr_t other) const noexcept { return other >= address && other - address < length; }

private:
    Section (FileDescriptor mappedFile, std::uintptr_t mappedAddress, std::size_t mappedLength);

    const FileDescriptor file;
    const std::uintptr_t address;
    const std::size_t length;
};
