#pragma once

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

} // namespace Machine
