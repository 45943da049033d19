#include "platform/DriverCalls.h"

/* The stand-in's own calls keep to these rules. */
namespace DriverCalls
{

HANDLE open (const char* path)
{
    return CreateFileA (path,
                        GENERIC_READ | GENERIC_WRITE,
                        FILE_SHARE_READ | FILE_SHARE_WRITE,
                        nullptr,
                        OPEN_EXISTING,
                        0,
                        nullptr);
}

bool request (HANDLE handle, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize)
{
    DWORD returned = 0;
    auto* bytes = const_cast<void*> (input);
    return DeviceIoControl (handle, controlCode, bytes, inputSize, output, outputSize, &returned, nullptr) != FALSE;
}

void close (HANDLE handle)
{
    CloseHandle (handle);
}

} // namespace DriverCalls
