#pragma once

#include "platform/Win32.h"
#include <chrono>
#include <memory>
#include <vector>

/** What a driver made of a request: an error code of the system's, and the bytes of the caller's output buffer. */
struct DriverAnswer
{
    /** In place of an error code: it gave the request up because it was told to. */
    static constexpr DWORD none = 0xFFFFFFFF;

    DWORD error = ERROR_SUCCESS;
    std::vector<char> bytes;
};

/** The system's side of one open device interface: it carries one request at a time. Not for two threads at once. */
class DriverLine
{
public:
    using Duration = std::chrono::nanoseconds;

    /** Opens a device interface for reading and writing, shared, for synchronous requests.

        @param path      as the system reported it, in its own bytes
        @param window    is sent what the system wants of the open file, as DEV_BROADCAST_HANDLE; null: nobody hears of
        it
        @param limit     how long may be waited
        @param answered  whether the driver let itself be opened, or refused, within that; if not, and there is a line
                         nevertheless, receive() is due for the opening first
        @returns         null when it cannot be opened
    */
    static std::unique_ptr<DriverLine> open (const char* path, HWND window, Duration limit, bool& answered);

    virtual ~DriverLine() = default;

    /** DeviceIoControl's first half. Call when nothing is outstanding.
        @param output  what the bytes are before the driver has written any
        @returns       false when the request cannot be sent: there will be no answer
    */
    virtual bool send (DWORD controlCode, const void* input, DWORD inputSize, const void* output, DWORD outputSize) = 0;

    /** The second half.
        @returns false when the driver has not answered within the limit; 0: only looks
    */
    virtual bool receive (DriverAnswer& answer, Duration limit) = 0;

    /** Asks the driver to give up what it has not answered; it may ignore that. */
    virtual void cancel() {}

    /** Whether a notification, whole, is about this file; also after close. */
    virtual bool isAbout (const DEV_BROADCAST_HANDLE& notification) const = 0;

    /** Closes the file; the line stays, and its requests cannot be sent.
        @returns false when that was not done within the limit, and goes on alone
    */
    virtual bool close (Duration limit) = 0;
};
