#pragma once

#include <unistd.h>
#include <utility>

/** Owns a file descriptor; -1 is none. */
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor (int descriptor) noexcept : fd (descriptor) {}
    FileDescriptor (FileDescriptor&& other) noexcept : fd (std::exchange (other.fd, -1)) {}

    FileDescriptor& operator= (FileDescriptor&& other) noexcept
    {
        std::swap (fd, other.fd);
        return *this;
    }

    ~FileDescriptor()
    {
        if (fd >= 0)
            ::close (fd);
    }

    int get() const noexcept { return fd; }

    /** Gives the descriptor up to the caller. */
    int release() noexcept { return std::exchange (fd, -1); }

    explicit operator bool() const noexcept { return fd >= 0; }

private:
    int fd = -1;
};
