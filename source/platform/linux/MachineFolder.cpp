#include "platform/linux/MachineFolder.h"

#include "protocol/MachineLayout.h"
#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>

namespace MachineFolder
{

static std::filesystem::path locate()
{
    const std::filesystem::path path = MachineLayout::getDefaultPath();
    return path.has_filename() ? path : path.parent_path();
}

std::string getName()
{
    return locate().filename();
}

FileDescriptor openParent()
{
    const auto parent = locate().parent_path() / ".";
    return FileDescriptor (::open (parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

FileDescriptor open()
{
    FileDescriptor folder (::open (MachineLayout::getDefaultPath().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status = {};

    if (! folder || ::fstat (folder.get(), &status) != 0 || status.st_uid != ::geteuid())
        return {};

    return folder;
}

FileDescriptor openFolder (int parent, const std::string& name)
{
    return FileDescriptor (::openat (parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool isPresentName (const std::string& name) noexcept
{
    return ! name.empty() && name.front() != '.';
}

/** Present entries of a folder, in ascending byte order. */
static std::vector<std::string> listFolder (FileDescriptor folder)
{
    std::vector<std::string> names;

    if (std::unique_ptr<DIR, int (*) (DIR*)> entries (::fdopendir (folder.get()), ::closedir); entries != nullptr)
    {
        folder.release();

        while (const auto* entry = ::readdir (entries.get()))
            if (std::string name (entry->d_name); isPresentName (name))
                names.push_back (std::move (name));
    }

    std::sort (names.begin(), names.end());
    return names;
}

static FileDescriptor openSubfolder (const char* name)
{
    const auto machine = open();
    return machine ? openFolder (machine.get(), name) : FileDescriptor();
}

std::vector<std::string> listInterfaces()
{
    const auto folder = openSubfolder (MachineLayout::interfacesFolder);

    if (! folder)
        return {};

    auto names = listFolder (openFolder (folder.get(), "."));
    std::erase_if (names, [&] (const auto& name) { return ! openFolder (folder.get(), name); });
    return names;
}

FileDescriptor openInterface (const std::string& path)
{
    const std::string prefix (MachineLayout::pathPrefix);

    if (path.compare (0, prefix.size(), prefix) != 0)
        return {};

    const auto name = path.substr (prefix.size());

    if (! isPresentName (name) || name.find ('/') != std::string::npos)
        return {};

    const auto folder = openSubfolder (MachineLayout::interfacesFolder);
    return folder ? openFolder (folder.get(), name) : FileDescriptor();
}

std::vector<std::string> listControllers()
{
    constexpr std::size_t longestId = 65536;

    std::vector<std::string> ids;
    const auto controllers = openSubfolder (MachineLayout::controllersFolder);

    if (! controllers)
        return ids;

    for (const auto& name : listFolder (openFolder (controllers.get(), ".")))
        if (const auto file = readFile (controllers.get(), name, longestId); file.exists)
            ids.emplace_back (file.bytes.begin(),
                              std::find_if (file.bytes.begin(),
                                            file.bytes.end(),
                                            [] (char c) { return c == '\n' || c == '\r' || c == 0; }));

    return ids;
}

FileContent readFile (int folder, const std::string& name, std::size_t maximumBytes)
{
    // Not blocking: a pipe in a file's place must not hold us up.
    FileDescriptor file (::openat (folder, name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};

    if (! file || ::fstat (file.get(), &status) != 0 || ! S_ISREG (status.st_mode))
        return {};

    FileContent content;
    content.exists = true;
    content.size = static_cast<std::size_t> (status.st_size);
    content.bytes.resize (std::min (maximumBytes, content.size));

    std::size_t filled = 0;

    while (filled < content.bytes.size())
    {
        const auto got = ::read (file.get(), content.bytes.data() + filled, content.bytes.size() - filled);

        if (got < 0 && errno == EINTR)
            continue;

        if (got <= 0)
            break;

        filled += static_cast<std::size_t> (got);
    }

    content.bytes.resize (filled);
    return content;
}

} // namespace MachineFolder
