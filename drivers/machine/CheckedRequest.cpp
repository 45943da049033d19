#include "drivers/machine/CheckedRequest.h"

#include <cstring>

namespace Machine
{

using DriverProtocol::RequestKind;
using Block = DriverProtocol::TransactionBlock;

static std::uint32_t
    checkCommand (CheckedRequest& request, const void* input, std::size_t inputSize, std::size_t capacity)
{
    auto& envelope = request.envelope;

    if (inputSize < sizeof (envelope))
        return invalidParameter;

    if (capacity < sizeof (envelope))
        return insufficientBuffer;

    std::memcpy (&envelope, input, sizeof (envelope));
    request.eventIndex = envelope.words[0];
    std::memset (envelope.words, 0, sizeof (envelope.words));
    return request.kind == RequestKind::other ? invalidFunction : noError;
}

static std::uint32_t
    checkTransaction (CheckedRequest& request, const void* input, std::size_t inputSize, std::size_t capacity)
{
    auto& block = request.block;

    if (inputSize < Block::headerSize)
        return invalidParameter;

    std::memcpy (&block, input, inputSize < sizeof (block) ? inputSize : sizeof (block));

    if (request.kind == RequestKind::other)
        return invalidFunction;

    const auto isProbe = request.kind == RequestKind::probe;
    const auto length = isProbe ? DriverProtocol::headerLength : DriverProtocol::fullLength;

    if (block.length != length || inputSize < (length + 1) * sizeof (std::uint32_t) || block.requestClass != 0)
        return invalidParameter;

    if (capacity < (isProbe ? Block::headerSize : sizeof (block)))
        return insufficientBuffer;

    const auto access = block.words[0];

    if (! isProbe && access != DriverProtocol::ReadFirmwareCounters && access != DriverProtocol::ClearFirmwareCounters)
        return invalidParameter;

    std::memset (block.words, 0, sizeof (block.words));
    block.status = 0;
    block.deviceStatus = 0;
    return noError;
}

CheckedRequest
    checkRequest (std::uint32_t controlCode, const void* input, std::size_t inputSize, std::size_t outputCapacity)
{
    CheckedRequest request { invalidFunction, DriverProtocol::identifyRequest (controlCode, input, inputSize) };

    if (controlCode == DriverProtocol::IOCTL_DEVICE_COMMAND)
        request.error = checkCommand (request, input, inputSize, outputCapacity);
    else if (controlCode == DriverProtocol::IOCTL_DEVICE_TRANSACTION)
        request.error = checkTransaction (request, input, inputSize, outputCapacity);

    return request;
}

std::size_t writeReply (const CheckedRequest& request, void* output, std::size_t capacity, std::size_t probeSize)
{
    const auto isProbe = request.kind == RequestKind::probe;

    if (! isProbe && request.kind != RequestKind::readCounters && request.kind != RequestKind::clearCounters)
    {
        std::memcpy (output, &request.envelope, sizeof (request.envelope));
        return sizeof (request.envelope);
    }

    const auto whole = isProbe ? probeSize : sizeof (Block);
    const auto size = capacity < whole ? capacity : whole;
    std::memset (output, 0, size);
    std::memcpy (output, &request.block, size < sizeof (Block) ? size : sizeof (Block));
    return size;
}

} // namespace Machine
