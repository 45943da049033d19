#include "drivers/machine/Host.h"

#include "protocol/MachineLayout.h"

#include <sys/epoll.h>

#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Machine
{

Host::Host (std::string newSuffix) : suffix (std::move (newSuffix)), poller (::epoll_create1 (EPOLL_CLOEXEC)) {}

std::string Host::start (const std::string& path, const std::vector<std::string>& controllers)
{
    if (! poller)
        return "no descriptor left";

    auto error = folder.create (path.empty() ? MachineLayout::getDefaultPath() : path, controllers);

    if (error.empty())
        removeLeftovers();

    return error;
}

/* Removes the interfaces that a killed driver left behind. */
void Host::removeLeftovers() const
{
    std::error_code error;
    std::vector<std::string> names;

    for (auto entry = std::filesystem::directory_iterator (getPath() + "/" + MachineLayout::interfacesFolder, error);
         ! error && entry != std::filesystem::directory_iterator();
         entry.increment (error))
    {
        if (auto name = entry->path().filename().string(); name.ends_with (suffix))
            names.push_back (std::move (name));
    }

    for (const auto& name : names)
        InterfaceServer::removeAbandoned (getPath(), name);
}

std::string Host::plugIn (InterfaceServer& server)
{
    if (auto error = server.plugIn(); ! error.empty())
        return error;

    setServing (server, true);
    return {};
}

void Host::setServing (InterfaceServer& server, bool shouldServe) const
{
    // Already in the set, or no longer in it, is fine.
    epoll_event event {};
    event.events = EPOLLIN;
    event.data.ptr = &server;
    ::epoll_ctl (poller.get(), shouldServe ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, server.getDescriptor(), &event);
}

void Host::retire (std::unique_ptr<InterfaceServer> server)
{
    if (server->getNumConnections() == 0)
        return;

    setServing (*server, true);
    departed.push_back (std::move (server));
}

void Host::serve()
{
    std::array<epoll_event, 64> ready {};
    const auto numReady = ::epoll_wait (poller.get(), ready.data(), static_cast<int> (ready.size()), 0);

    for (int i = 0; i < numReady; ++i)
        static_cast<InterfaceServer*> (ready[static_cast<std::size_t> (i)].data.ptr)->serve();

    std::erase_if (departed, [] (const auto& server) { return server->getNumConnections() == 0; });
}

} // namespace Machine
