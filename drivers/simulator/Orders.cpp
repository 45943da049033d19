#include "drivers/simulator/Orders.h"

#include "drivers/simulator/Simulator.h"

#include <algorithm>

namespace Simulation
{

namespace
{
using DriverProtocol::numRequestKinds;
using DriverProtocol::requestNames;
using Words = std::vector<std::string_view>;
using Devices = std::vector<SimulatedDevice*>;

/** What an order works with: its words, and the devices that the second one names when it is to name some. */
struct Call
{
    Simulator& simulator;
    const Words& words;
    Devices devices;
};

struct Order
{
    std::string_view name;
    std::string_view arguments; // each is one word; those in brackets may be left out
    std::string_view explanation;
    std::string (*execute) (const Call& call);

    bool namesDevices() const { return arguments.starts_with ("DEV"); }

    bool takes (std::size_t numArguments) const
    {
        const auto count = [this] (char character) { return std::ranges::count (arguments, character); };
        const auto maximum = static_cast<std::size_t> (arguments.empty() ? 0 : count (' ') + 1);
        return numArguments <= maximum && numArguments + static_cast<std::size_t> (count ('[')) >= maximum;
    }

    std::string describe() const { return std::string (name).append (arguments.empty() ? "" : " ").append (arguments); }
};

std::string failed (const std::string& reason)
{
    return "error: " + reason;
}

//==============================================================================
std::string plug (const Call& call)
{
    std::string name (call.words.size() > 1 ? call.words[1] : std::string_view());
    const auto error = call.simulator.plug (name);
    return error.empty() ? "ok " + name : failed (error);
}

std::string unplug (const Call& call)
{
    for (auto* device : call.devices)
        call.simulator.unplug (*device);

    return "ok";
}

std::string kill (const Call& call)
{
    for (auto* device : call.devices)
        call.simulator.kill (*device);

    return "ok";
}

std::string setRate (const Call& call)
{
    std::uint32_t hz = 0;

    if (! parseNumber (call.words[2], hz) || ! DeviceModel::isSampleRate (hz))
        return failed ("a rate is 22050 to 192000 Hz");

    for (auto* device : call.devices)
    {
        device->advance();
        device->getModel().setSampleRate (hz);
    }

    return "ok";
}

std::string setBuffer (const Call& call)
{
    std::uint32_t samples = 0;

    if (! parseNumber (call.words[2], samples) || ! DeviceModel::isBufferSize (samples))
        return failed ("a buffer is 16 to 8192 samples");

    for (auto* device : call.devices)
    {
        device->advance();
        device->getModel().setBufferSize (samples);
    }

    return "ok";
}

std::string glitch (const Call& call)
{
    for (auto* device : call.devices)
        device->getModel().glitch();

    return "ok";
}

std::string failOpening (const Call& call)
{
    const auto word = call.words.size() > 3 ? call.words[3] : std::string_view();

    if (word != "always" && word != "never")
        return failed ("open fails always or never");

    for (const auto* device : call.devices)
        device->setOpening (word == "never");

    return "ok";
}

std::string fail (const Call& call)
{
    if (call.words[2] == "open")
        return failOpening (call);

    const auto found = std::find (std::begin (requestNames), std::end (requestNames), call.words[2]);

    if (found == std::end (requestNames))
        return failed ("no such request: " + std::string (call.words[2]));

    std::uint32_t count = 1;

    if (call.words.size() > 3 && call.words[3] == "always")
        count = SimulatedDevice::always;
    else if (call.words.size() > 3 && call.words[3] == "never")
        count = 0;
    else if (call.words.size() > 3 && (! parseNumber (call.words[3], count) || count == SimulatedDevice::always))
        return failed ("how often: a number, always or never");

    for (auto* device : call.devices)
        device->failNext (static_cast<RequestKind> (found - std::begin (requestNames)), count);

    return "ok";
}

std::string stop (const Call& call)
{
    for (auto* device : call.devices)
        call.simulator.setAnswering (*device, false);

    return "ok";
}

std::string resume (const Call& call)
{
    for (auto* device : call.devices)
        call.simulator.setAnswering (*device, true);

    return "ok";
}

std::string fill (const Call& call)
{
    std::uint32_t length = 0;

    if (! parseNumber (call.words[2], length) || length > Machine::EventRing::maximumLength)
        return failed ("a log has 0 to " + std::to_string (Machine::EventRing::maximumLength) + " entries");

    for (auto* device : call.devices)
    {
        device->advance();
        device->getModel().fillEventLog (length);
    }

    return "ok";
}

std::string tick (const Call& call)
{
    constexpr std::uint32_t limit = 60'000;
    std::uint32_t milliseconds = 0;

    if (! parseNumber (call.words[1], milliseconds) || milliseconds > limit)
        return failed ("a tick is 0 to 60000 milliseconds");

    return call.simulator.tick (milliseconds) ? "ok" : failed ("the clock moves by itself; see --clock");
}

std::string takeView (const Call& call)
{
    for (auto* device : call.devices)
        device->takeView();

    return "ok";
}

std::string describeStatus (const Call& call)
{
    auto line = "ok interfaces=" + std::to_string (call.simulator.getDevices().size());

    for (const auto& device : call.simulator.getDevices())
    {
        device->advance();

        const auto& model = device->getModel();
        line.append ("; ").append (device->getName());
        line += " rate=" + std::to_string (model.getConfig().sampleRate);
        line += " buffer=" + std::to_string (model.getConfig().bufferSize);
        line += " events=" + std::to_string (model.getEventLogLength());
        line += " connections=" + std::to_string (device->getServer().getNumConnections());
    }

    return line;
}

std::string describeCounts (const Call& call)
{
    std::string line = "ok";

    const auto add = [&line] (std::string_view name, std::uint64_t count)
    { line.append (" ").append (name).append ("=").append (std::to_string (count)); };

    for (auto* device : call.devices)
    {
        if (call.devices.size() > 1)
            line.append (" ").append (device->getName());

        add ("open", device->getServer().getNumOpens());

        for (std::size_t i = 0; i < numRequestKinds; ++i)
            add (requestNames[i], device->getNumReceived (static_cast<RequestKind> (i)));
    }

    return line;
}

std::string quit (const Call& call)
{
    call.simulator.quit();
    return "ok";
}

std::string help (const Call& call);

constexpr Order orders[] = {
    { "help", "", "name the orders", help },
    { "plug", "[NAME]", "plug a device in", plug },
    { "unplug", "DEV", "take it away; its requests fail from now on", unplug },
    { "kill", "DEV", "take it away as a crash would: no more answers", kill },
    { "rate", "DEV HZ", "change the sample rate; its stream restarts", setRate },
    { "buffer", "DEV SAMPLES", "change the buffer size; its stream restarts", setBuffer },
    { "glitch", "DEV", "make the host late for the next buffer", glitch },
    { "fail", "DEV REQUEST [COUNT|always|never]", "fail the next requests of a kind (1)", fail },
    { "stop", "DEV", "stop answering; requests stay pending", stop },
    { "resume", "DEV", "answer again, pending requests first", resume },
    { "fill", "DEV COUNT", "rewrite the event log with so many entries; it keeps that length", fill },
    { "take-view", "DEV", "take the statistics from those who map them; the next open maps others", takeView },
    { "tick", "MILLISECONDS", "let time pass, with --clock orders", tick },
    { "status", "", "every device's sample rate, buffer size, log length and connections", describeStatus },
    { "counts", "DEV", "requests since the device was plugged in", describeCounts },
    { "quit", "", "take everything away and end", quit },
};

std::string help (const Call&)
{
    std::string line = "ok";

    for (const auto& order : orders)
        line += (line == "ok" ? " " : "; ") + order.describe();

    return line;
}

Words split (std::string_view line)
{
    constexpr std::string_view blanks = " \t\r";
    Words words;

    for (auto start = line.find_first_not_of (blanks); start != std::string_view::npos;)
    {
        const auto end = std::min (line.find_first_of (blanks, start), line.size());
        words.push_back (line.substr (start, end - start));
        start = line.find_first_not_of (blanks, end);
    }

    return words;
}

Devices findDevices (const Simulator& simulator, std::string_view name)
{
    Devices found;

    for (const auto& device : simulator.getDevices())
        if (name == "all" || name == device->getName())
            found.push_back (device.get());

    return found;
}
} // namespace

std::string executeOrder (Simulator& simulator, std::string_view line)
{
    const auto words = split (line);

    if (words.empty())
        return failed ("no order; try help");

    const auto isNamed = [&words] (const Order& order) { return order.name == words[0]; };
    const auto* order = std::find_if (std::begin (orders), std::end (orders), isNamed);

    if (order == std::end (orders))
        return failed ("no such order: " + std::string (words[0]) + "; try help");

    if (! order->takes (words.size() - 1))
        return failed ("usage: " + order->describe());

    Call call { simulator, words, {} };

    if (order->namesDevices())
        call.devices = findDevices (simulator, words[1]);

    if (order->namesDevices() && call.devices.empty() && words[1] != "all")
        return failed ("no such device: " + std::string (words[1]));

    return order->execute (call);
}

std::string getOrderHelp()
{
    std::string text;

    for (const auto& order : orders)
        text += Machine::explain (order.describe(), std::string (order.explanation));

    return text;
}

} // namespace Simulation
