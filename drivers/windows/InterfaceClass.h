#pragma once

/** The driver's device-interface class, for who has included a header with GUID in it. */
inline constexpr GUID interfaceClass { 0x7be5a0c4, 0x2f1d, 0x4d0e, { 0x9a, 0x6b, 0x51, 0xd7, 0xc3, 0x08, 0xe2, 0x94 } };
