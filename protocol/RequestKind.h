#pragma once

#include "protocol/DriverProtocol.h"

#include <cstring>

namespace DriverProtocol
{

/** The kinds of request that a driver gets. */
enum class RequestKind : std::uint32_t
{
    streamStatus,
    mapStatistics,
    resetStatistics,
    eventEntry,
    probe,
    readCounters,
    clearCounters,
    other
};

/** Their names, in the order of RequestKind. */
inline constexpr const char* requestNames[] { "stream-status", "map-statistics", "reset-statistics", "event-entry",
                                              "probe",         "read-counters",  "clear-counters",   "other" };

inline constexpr std::size_t numRequestKinds = sizeof (requestNames) / sizeof (requestNames[0]);

/** What a request's bytes say that it is, whether the driver takes it or not. Bytes that are missing count as 0.
    @param input   may be null when there are no bytes
*/
inline RequestKind identifyRequest (std::uint32_t controlCode, const void* input, std::size_t size)
{
    const auto read = [input, size] (auto record)
    {
        if (size > 0)
            std::memcpy (&record, input, size < sizeof (record) ? size : sizeof (record));

        return record;
    };

    if (controlCode == IOCTL_DEVICE_COMMAND)
    {
        switch (read (CommandEnvelope {}).code)
        {
            case ReadStreamStatus:
                return RequestKind::streamStatus;
            case MapStatistics:
                return RequestKind::mapStatistics;
            case ResetStatistics:
                return RequestKind::resetStatistics;
            case ReadEventEntry:
                return RequestKind::eventEntry;
            default:
                return RequestKind::other;
        }
    }

    if (controlCode != IOCTL_DEVICE_TRANSACTION)
        return RequestKind::other;

    const auto block = read (TransactionBlock {});

    if (block.code == ProbeDevice)
        return RequestKind::probe;

    if (block.code != AccessFirmwareCounters)
        return RequestKind::other;

    return block.words[0] == ClearFirmwareCounters ? RequestKind::clearCounters : RequestKind::readCounters;
}

} // namespace DriverProtocol
