#include "drivers/pipewire/KernelLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <sstream>

namespace PipeWire
{

KernelLog::KernelLog (const std::string& path) : log (::open (path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
{
    // Earlier messages do not count.
    if (log)
        ::lseek (log.get(), 0, SEEK_END);
}

std::vector<std::string> KernelLog::read() const
{
    // One record at a time, which has at most this many bytes.
    std::array<char, 8192> bytes;
    std::vector<std::string> devices;

    for (;;)
    {
        const auto size = ::read (log.get(), bytes.data(), bytes.size());

        // EPIPE: records were overwritten before they could be read.
        if (size < 0 && (errno == EPIPE || errno == EINTR))
            continue;

        if (size <= 0)
            return devices;

        std::istringstream record (std::string (bytes.data(), static_cast<std::size_t> (size)));

        for (std::string line; std::getline (record, line);)
            if (auto device = findComplaint (line); ! device.empty())
                devices.push_back (std::move (device));
    }
}

/* "4,1234,5678,-;snd-bebob fw1.0: Detect discontinuity of CIP: 10 50": priority, number, time and flags, then driver,
    device and what there is to say. Further lines of a record begin with a blank. */
std::string findComplaint (std::string_view line)
{
    constexpr unsigned warning = 4, notice = 5; // higher numbers matter less, or are not the kernel's

    auto priority = notice + 1;
    std::from_chars (line.data(), line.data() + line.size(), priority);
    line = line.substr (line.find (';') + 1);

    const auto driverEnd = line.find (' '), deviceEnd = line.find (": ");

    if (driverEnd >= deviceEnd || deviceEnd == std::string_view::npos)
        return {};

    const auto driver = line.substr (0, driverEnd), device = line.substr (driverEnd + 1, deviceEnd - driverEnd - 1),
               text = line.substr (deviceEnd + 2);
    const auto isFireWire = driver.starts_with ("firewire_") || device.starts_with ("fw");
    const auto isComplaint = priority <= warning || (priority == notice && text.starts_with ("isochronous cycle"));
    return std::string (isFireWire && isComplaint ? device : std::string_view());
}

} // namespace PipeWire
