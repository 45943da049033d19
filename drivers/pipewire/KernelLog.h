#pragma once

#include "posix/FileDescriptor.h"

#include <string>
#include <string_view>
#include <vector>

namespace PipeWire
{

/** What the kernel's FireWire drivers complain about from now on: errors, warnings, and cycles that were lost. */
class KernelLog
{
public:
    /** @param path  usually /dev/kmsg; where this user may not read it, nothing is reported */
    explicit KernelLog (const std::string& path);

    /** Readable when there is something to read(); -1: never. Owned by the log. */
    int getDescriptor() const { return log.get(); }

    /** The devices that have been complained about since, by the names that the kernel has for them, such as "fw1.0"
        or, for a host controller, "0000:05:00.0"; once for each complaint. Does not wait. */
    std::vector<std::string> read() const;

private:
    FileDescriptor log;
};

/** The device that a line of the kernel's log complains about; empty when it is no complaint of a FireWire driver's. */
std::string findComplaint (std::string_view line);

} // namespace PipeWire
