#pragma once

#include "posix/FileDescriptor.h"
#include <string>
#include <vector>

/** The folder that a driver process serves in place of Windows' device tree (docs/machine-folder.md).

    Nothing in it is trusted: what is not a folder, a plain file or a socket where one belongs is not there, and a
    symbolic link is no folder. Free of state; may be called on any thread.
*/
namespace MachineFolder
{

/** The machine folder's own name, and the folder that it is in, which may be there without it. */
std::string getName();
FileDescriptor openParent();

/** Opens the machine folder; none when there is no folder or it belongs to another user. */
FileDescriptor open();

/** Opens a folder below another one; none when there is no folder of that name. */
FileDescriptor openFolder (int parent, const std::string& name);

/** True when an entry of that name is present, that is, not hidden by a leading dot. */
bool isPresentName (const std::string& name) noexcept;

/** Names of the present interfaces, in ascending byte order. */
std::vector<std::string> listInterfaces();

/** Opens the folder of a present interface, named by its device-interface path. */
FileDescriptor openInterface (const std::string& path);

/** Device-instance ids of the host controllers, in ascending byte order of their files' names. */
std::vector<std::string> listControllers();

/** Outcome of readFile. */
struct FileContent
{
    bool exists = false;
    std::size_t size = 0;    /**< The file's size in bytes. */
    std::vector<char> bytes; /**< At most as many as asked for. */
};

/** Reads the first bytes of a plain file. */
FileContent readFile (int folder, const std::string& name, std::size_t maximumBytes);

} // namespace MachineFolder
