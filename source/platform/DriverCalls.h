#pragma once

#include "platform/Win32.h"

/** The calls that a driver has to answer. None keeps its caller for longer than a second, and all together, however
   many drivers are silent, for less than two.

    A driver that does not answer in time fails the call, which goes on without its caller: until it has ended, further
    requests on its handle fail at once. Where the system can, it is told to give up what has lasted for a second. Any
    thread.
*/
namespace DriverCalls
{

/** Opens a device interface for reading and writing, shared, for synchronous requests.

    @param path  as the system reported it, in its own bytes
    @returns     a handle for these calls only, or INVALID_HANDLE_VALUE
*/
HANDLE open (const char* path);

/** DeviceIoControl; input and output may be the same. A call that was given up leaves the output as it was.
    @returns false with the last error set when it failed
*/
bool request (HANDLE handle, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize);

/** Returns at once, also when the driver still has a request of this handle. */
void close (HANDLE handle);

} // namespace DriverCalls
