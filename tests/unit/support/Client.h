#pragma once

#include "posix/FileDescriptor.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

/** A bare connection to the driver in an interface's folder, without the program's platform layer. */
struct Client
{
    explicit Client (const std::filesystem::path& folder)
    {
        // The folder's path can be longer than a socket address can hold.
        const FileDescriptor descriptor (::open (folder.c_str(), O_PATH | O_CLOEXEC));
        sockaddr_un address { AF_UNIX, {} };
        std::snprintf (address.sun_path, sizeof (address.sun_path), "/proc/self/fd/%d/driver", descriptor.get());

        if (::connect (socket.get(), reinterpret_cast<const sockaddr*> (&address), sizeof (address)) != 0)
            throw std::runtime_error ("nobody serves " + folder.string());
    }

    FileDescriptor socket { ::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0) };
};
