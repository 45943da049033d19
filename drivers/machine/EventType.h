#pragma once

#include <cstdint>

namespace Machine
{

/** The driver's event types, by the numbers that travel in EventLogEntry::type. */
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

} // namespace Machine
