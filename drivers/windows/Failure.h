#pragma once

#include <stdexcept>
#include <string>
#include <windows.h>

/** What the remote answers an order with that it could not carry out. */
struct Failure : std::runtime_error
{
    using runtime_error::runtime_error;
};

/** Throws a Failure, with the system's last error, unless it is done. */
inline void check (bool isDone, const std::string& what)
{
    if (! isDone)
        throw Failure (what + " (" + std::to_string (GetLastError()) + ")");
}
