#pragma once

/** The kernel's interface, whose header is in C and brings two functions that C++ gets from the compiler's. */
#define __INTRINSIC_DEFINED_InterlockedBitTestAndSet
#define __INTRINSIC_DEFINED_InterlockedBitTestAndReset

extern "C"
{
#include <ntifs.h>
}

#undef interface
#undef min
#undef max
