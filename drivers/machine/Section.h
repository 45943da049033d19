#pragma once

#include "posix/FileDescriptor.h"

#include <cstddef>

namespace Machine
{

/** Shared memory that a driver hands out, and takes away again when its device goes.

    Used by one thread at a time; the processes that map it read it whenever they like.
*/
class Section
{
public:
    /** Makes a section of this many zero bytes; isOpen() tells whether there was memory for it. */
    explicit Section (std::size_t size);

    bool isOpen() const { return static_cast<bool> (readOnly); }

    /** Copies as many bytes as fit to the front of the section; nothing once it is cut. */
    void write (const void* bytes, std::size_t numBytes);

    /** Takes the memory away: reading a mapping of it faults from now on. */
    void cut();

    /** What to hand out: it can be mapped for reading, not written or resized. Owned by the section. */
    int getReadOnlyDescriptor() const { return readOnly.get(); }

private:
    FileDescriptor memory, readOnly;
    std::size_t size;
};

} // namespace Machine
