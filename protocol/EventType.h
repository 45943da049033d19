#pragma once

#include <cstddef>
#include <cstdint>

namespace DriverProtocol
{

/** The kinds of event in the driver's log, by the numbers that travel in EventLogEntry::type. */
enum class EventType : std::uint8_t
{
    listenAttach,
    listenAttachCompletion,
    listenComplete,
    listenDetach,
    listenDetachCompletion,
    talkAttach,
    talkFilled,
    talkPack,
    talkAttachCompletion,
    talkComplete,
    talkDetach,
    talkDetachCompletion,
    userClientEvent,
    dpcSignaled,
    dpc,
    listenStartupA,
    listenStartupB,
    clockAdjust,
    clockNoAdjust,
    listenBufferAdjust,
    bufferState,
    fifoCount,
    outputReady,
    debugCounts
};

/** The names that people read, in the order of EventType. */
inline constexpr const char* eventNames[] {
    "Listen attach",
    "Listen attach completion",
    "Listen complete",
    "Listen detach",
    "Listen detach completion",
    "Talk attach",
    "Talk filled",
    "Talk pack",
    "Talk attach completion",
    "Talk complete",
    "Talk detach",
    "Talk detach completion",
    "User client event",
    "Isoc Q DPC signaled",
    "Isoc Q DPC",
    "Listen complete startup A",
    "Listen complete startup B",
    "Clock adjust",
    "Clock no adjust",
    "Listen buffer adjust",
    "Buffer state",
    "FIFO count",
    "User audio output ready",
    "Debug counts",
};

static_assert (sizeof (eventNames) / sizeof (eventNames[0]) == static_cast<std::size_t> (EventType::debugCounts) + 1);

} // namespace DriverProtocol
