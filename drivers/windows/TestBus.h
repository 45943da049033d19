#pragma once

#include <cstdint>

/** What the test bus and its remote have to agree on. */
namespace TestBus
{

inline constexpr wchar_t devicePath[] = L"\\Device\\QuendelTestBus";
inline constexpr wchar_t linkPath[] = L"\\DosDevices\\QuendelTestBus";
inline constexpr char openPath[] = "\\\\.\\QuendelTestBus";

/** CTL_CODE (FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS): an order in, its answer out, each a line of
    text without an end. What comes or goes by the order has done so when the answer is there.
*/
inline constexpr std::uint32_t orderCode = 0x222000;

/** Bytes of an order, and of an answer. */
inline constexpr std::uint32_t maximumOrder = 255;
inline constexpr std::uint32_t maximumAnswer = 4095;

} // namespace TestBus
