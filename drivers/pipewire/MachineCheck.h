#pragma once

#include <string>
#include <vector>

namespace PipeWire
{

/** What of this machine makes audio stutter: a line each, none for what is well or cannot be looked at.

    Looked at are the data loops of this user's PipeWire and its clients, what forbids them real-time priority, the
    processors' governors, and the interrupts of the FireWire controllers.

    @param root  where proc and sys are mounted, usually /
*/
std::vector<std::string> checkMachine (const std::string& root);

} // namespace PipeWire
