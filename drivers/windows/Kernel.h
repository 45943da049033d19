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

/** Gives a request back to whom it came from. @returns the status */
inline NTSTATUS complete (IRP* irp, NTSTATUS status, ULONG_PTR information = 0)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IoCompleteRequest (irp, IO_NO_INCREMENT);
    return status;
}
