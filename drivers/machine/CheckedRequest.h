#pragma once

#include "protocol/DriverProtocol.h"
#include "protocol/RequestKind.h"

#include <cstddef>
#include <cstdint>

namespace Machine
{

/** Windows error codes that drivers answer requests with. */
enum ErrorCode : std::uint32_t
{
    noError = 0,
    invalidFunction = 1,
    generalFailure = 31,
    invalidParameter = 87,
    insufficientBuffer = 122,
    deviceNotConnected = 1167
};

/** A request of the driver protocol whose bytes have been checked, and the reply to it while it is made.

    Nothing but arithmetic: it also goes into a kernel driver.
*/
struct CheckedRequest
{
    std::uint32_t error; /**< 0, or the Windows error code to fail the request with; then nothing else counts. */
    DriverProtocol::RequestKind kind;
    std::uint32_t eventIndex = 0; /**< Of RequestKind::eventEntry. */

    /** The reply to a command: its words are 0, to be filled in. */
    DriverProtocol::CommandEnvelope envelope {};

    /** The reply to a transaction: a success whose words are 0, to be filled in. */
    DriverProtocol::TransactionBlock block {};
};

/** Checks a request; any control code, bytes and sizes are good.

    @param input           inputSize bytes; may be null when there are none
    @param outputCapacity  bytes that the client has room for
*/
CheckedRequest
    checkRequest (std::uint32_t controlCode, const void* input, std::size_t inputSize, std::size_t outputCapacity);

/** Writes the reply to a request without an error.

    @param output     capacity bytes, which are those that the request was checked with or fewer than them, and no
                      fewer than an envelope or a block; the request's own memory is good, too
    @param probeSize  bytes of the reply to a probe, as the capability record announces them
    @returns          bytes written
*/
std::size_t writeReply (const CheckedRequest& request, void* output, std::size_t capacity, std::size_t probeSize);

} // namespace Machine
