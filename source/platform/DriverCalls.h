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

    @param path    as the system reported it, in its own bytes
    @param window  is sent what the system wants of the open file, as DEV_BROADCAST_HANDLE; null: nobody hears of it
    @returns       a handle for these calls only, or INVALID_HANDLE_VALUE
*/
HANDLE open (const char* path, HWND window);

/** DeviceIoControl; input and output may be the same. A call that was given up leaves the output as it was.
    @returns false with the last error set when it failed
*/
bool request (HANDLE handle, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize);

/** Whether a notification, whole, is about the file that was opened for a handle; also after closeFile. */
bool isAbout (const DEV_BROADCAST_HANDLE& notification, HANDLE handle);

/** Closes the file, and waits for that as for a request: who opens it next is not kept out by it. The handle stays:
    requests on it fail, and its window still hears of the file.
*/
void closeFile (HANDLE handle);

/** closeFile, and nothing is heard of the file any more. */
void close (HANDLE handle);

} // namespace DriverCalls
