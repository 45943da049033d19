#pragma once

#include <unistd.h>

#include <utility>

namespace Machine
{

/** Owns one file descriptor and closes it; -1 owns nothing. */
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor (int newDescriptor) : descriptor (newDescriptor) {}
    FileDescriptor (FileDescriptor&& other) noexcept : descriptor (std::exchange (other.descriptor, -1)) {}
    FileDescriptor (const FileDescriptor&) = delete;
    FileDescriptor& operator= (const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    FileDescriptor& operator= (FileDescriptor&& other) noexcept
    {
        if (this != &other)
        {
            reset();
            descriptor = std::exchange (other.descriptor, -1);
        }

        return *this;
    }

    void reset()
    {
        if (const auto old = std::exchange (descriptor, -1); old >= 0)
            ::close (old);
    }

    int get() const { return descriptor; }
    bool isOpen() const { return descriptor >= 0; }

private:
    int descriptor = -1;
};

} // namespace Machine
