#pragma once

#include "posix/FileDescriptor.h"

#include <string>
#include <vector>

namespace Machine
{

/** The folder in which a machine is found: its controllers, and room for its interfaces.

    Takes away again what it made, when it is destroyed. Whatever else is in the folder stays.
*/
class MachineFolder
{
public:
    MachineFolder() = default;
    ~MachineFolder();

    MachineFolder (const MachineFolder&) = delete;
    MachineFolder& operator= (const MachineFolder&) = delete;

    /** Makes the folder, or takes one that is there, belongs to this user and is served by nobody; possible once.

        @param newPath      its parent must exist
        @param controllers  device-instance ids of the machine's host controllers
        @returns            an empty string, or one line that says why it could not be done
    */
    std::string create (const std::string& newPath, const std::vector<std::string>& controllers);

    const std::string& getPath() const { return path; }

private:
    std::string makeFolder (const std::string& folder);

    std::string path;
    FileDescriptor lock; // two drivers in one folder would remove each other's files
    std::vector<std::string> foldersMade, filesMade;
};

} // namespace Machine
