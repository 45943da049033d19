#include "drivers/machine/MachineFolder.h"

#include "protocol/MachineLayout.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Machine
{

MachineFolder::~MachineFolder()
{
    for (const auto& file : filesMade)
        ::unlink (file.c_str());

    // A folder that somebody has put something into stays.
    for (auto folder = foldersMade.rbegin(); folder != foldersMade.rend(); ++folder)
        ::rmdir (folder->c_str());
}

std::string MachineFolder::create (const std::string& newPath, const std::vector<std::string>& controllers)
{
    path = newPath;

    if (auto error = makeFolder (path); ! error.empty())
        return error;

    lock = FileDescriptor (::open (path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));

    if (! lock)
        return path + ": " + std::strerror (errno);

    if (::flock (lock.get(), LOCK_EX | LOCK_NB) != 0)
        return path + " is served already";

    for (const auto& folder :
         { path + "/" + MachineLayout::interfacesFolder, path + "/" + MachineLayout::controllersFolder })
        if (auto error = makeFolder (folder); ! error.empty())
            return error;

    for (std::size_t i = 0; i < controllers.size(); ++i)
    {
        // Programs list controllers in the order of their file names.
        char name[48];
        std::snprintf (name, sizeof (name), "/%s/controller-%04zu", MachineLayout::controllersFolder, i);

        const auto file = path + name;
        const auto line = controllers[i] + "\n";
        const FileDescriptor output (
            ::open (file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));

        if (! output)
            return file + ": " + std::strerror (errno);

        filesMade.push_back (file);

        if (::write (output.get(), line.data(), line.size()) != static_cast<ssize_t> (line.size()))
            return file + ": " + std::strerror (errno);
    }

    return {};
}

std::string MachineFolder::makeFolder (const std::string& folder)
{
    if (::mkdir (folder.c_str(), 0700) == 0)
    {
        foldersMade.push_back (folder);
        return {};
    }

    if (errno != EEXIST)
        return folder + ": " + std::strerror (errno);

    // The link's own status: its target's owner may change.
    struct stat status;

    if (::lstat (folder.c_str(), &status) != 0)
        return folder + ": " + std::strerror (errno);

    if (! S_ISDIR (status.st_mode))
        return folder + " is not a folder";

    if (status.st_uid != ::geteuid())
        return folder + " belongs to another user";

    return {};
}

} // namespace Machine
