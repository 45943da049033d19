#include "drivers/machine/Section.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <string>

namespace Machine
{

Section::Section (std::size_t newSize) : memory (::memfd_create ("quendel-statistics", MFD_CLOEXEC)), size (newSize)
{
    if (! memory || ::ftruncate (memory.get(), static_cast<off_t> (size)) != 0)
        return;

    const auto path = "/proc/self/fd/" + std::to_string (memory.get());
    readOnly = FileDescriptor (::open (path.c_str(), O_RDONLY | O_CLOEXEC));
}

void Section::write (const void* bytes, std::size_t numBytes)
{
    // Written through the file and not a mapping: after the cut, a mapping would fault here, too.
    if (size > 0 && ::pwrite (memory.get(), bytes, std::min (numBytes, size), 0) < 0)
        cut();
}

void Section::cut()
{
    size = 0;
    static_cast<void> (::ftruncate (memory.get(), 0) == 0);
}

} // namespace Machine
