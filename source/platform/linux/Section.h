#pragma once

#include "posix/FileDescriptor.h"
#include <cstdint>
#include <memory>

/** A place below 4 GiB for a driver's section, which is mapped there shared and read-only until the object dies.

    Any thread; AccessGuard::readableBytes looks addresses up among the living sections.
*/
class Section
{
public:
    /** Maps the whole file that a driver handed over; null when it is no plain file or there is no room. */
    static std::unique_ptr<Section> make (FileDescriptor file);

    /** A place for a section to come, at which reading faults until then; null when there is no room.
        @param size   bytes, at least 1; what a section has beyond is not mapped
    */
    static std::unique_ptr<Section> reserve (std::size_t size = usualSize);

    /** Maps a file that a driver handed over; false, and nothing changes, when it is no plain file. Possible once. */
    bool map (FileDescriptor newFile);

    ~Section();

    std::uint32_t getAddress() const noexcept { return static_cast<std::uint32_t> (address); }

    /** Bytes that the file holds from an address in this section on; 0 when it lies outside. */
    std::size_t readableBytes (std::uintptr_t from) const noexcept;

    bool contains (std::uintptr_t other) const noexcept { return other >= address && other - address < length; }

private:
    static constexpr std::size_t usualSize = 0x10000;

    Section (std::uintptr_t reservedAddress, std::size_t reservedLength);

    FileDescriptor file; // none yet while the place is only reserved
    const std::uintptr_t address;
    const std::size_t length;
};
