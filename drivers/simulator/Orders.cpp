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

/** What an order works with: its words, and the device when it is for one. */
struct Call
{
    Simulator& simulator;
    const Words& words;
    SimulatedDevice* device = nullptr;
    std::string answer {}; /**< Printed after "ok". */

    DeviceModel& getModel() const { return device->getModel(); }
};

/** Why an order was not carried out; empty when it was. */
using Error = std::string;

struct Order
{
    std::string_view name;
    std::string_view arguments; // each is one word; those in brackets may be left out
    std::string_view explanation;
    Error (*execute) (Call& call); // once for each device that is meant; an error depends on the words alone

    bool namesDevices() const { return arguments.starts_with ("DEV"); }

    bool takes (std::size_t numArguments) const
    {
        const auto count = [this] (char character) { return std::ranges::count (arguments, character); };
        const auto maximum = static_cast<std::size_t> (arguments.empty() ? 0 : count (' ') + 1);
        return numArguments <= maximum && numArguments + static_cast<std::size_t> (count ('[')) >= maximum;
    }

    std::string describe() const { return std::string (name).append (arguments.empty() ? "" : " ").append (arguments); }
};

//==============================================================================
Error plug (Call& call)
{
    std::string name (call.words.size() > 1 ? call.words[1] : std::string_view());
    auto error = call.simulator.plug (name);
    call.answer = " " + name;
    return error;
}

Error setRate (Call& call)
{
    std::uint32_t hz = 0;
    const auto isSet = parseNumber (call.words[2], hz) && call.getModel().setSampleRate (hz);
    return isSet ? "" : "a rate is 22050 to 192000 Hz";
}

Error setBuffer (Call& call)
{
    std::uint32_t samples = 0;
    const auto isSet = parseNumber (call.words[2], samples) && call.getModel().setBufferSize (samples);
    return isSet ? "" : "a buffer is 16 to 8192 samples";
}

Error fail (Call& call)
{
    const auto often = call.words.size() > 3 ? call.words[3] : "1";
    const auto isLasting = often == "always" || often == "never";

    if (call.words[2] == "open")
    {
        if (! isLasting)
            return "open fails always or never";

        call.device->setOpening (often == "never");
        return {};
    }

    const auto found = std::find (std::begin (requestNames), std::end (requestNames), call.words[2]);

    if (found == std::end (requestNames))
        return "no such request: " + std::string (call.words[2]);

    auto count = often == "always" ? SimulatedDevice::always : 0;

    if (! isLasting && (! parseNumber (often, count) || count == SimulatedDevice::always))
        return "how often: a number, always or never";

    call.device->failNext (static_cast<RequestKind> (found - std::begin (requestNames)), count);
    return {};
}

Error fill (Call& call)
{
    std::uint32_t length = 0;

    if (! parseNumber (call.words[2], length) || length > Machine::EventRing::maximumLength)
        return "a log has 0 to " + std::to_string (Machine::EventRing::maximumLength) + " entries";

    call.getModel().fillEventLog (length);
    return {};
}

Error tick (Call& call)
{
    constexpr std::uint32_t limit = 60'000;
    std::uint32_t milliseconds = 0;

    if (! parseNumber (call.words[1], milliseconds) || milliseconds > limit)
        return "a tick is 0 to 60000 milliseconds";

    return call.simulator.tick (milliseconds) ? "" : "the clock moves by itself; see --clock";
}

Error describeStatus (Call& call)
{
    call.answer = " interfaces=" + std::to_string (call.simulator.getDevices().size());

    for (const auto& device : call.simulator.getDevices())
    {
        device->advance();

        const auto& model = device->getModel();
        call.answer.append ("; ").append (device->getName());
        call.answer += " rate=" + std::to_string (model.getConfig().sampleRate);
        call.answer += " buffer=" + std::to_string (model.getConfig().bufferSize);
        call.answer += " events=" + std::to_string (model.getEventLogLength());
        call.answer += " connections=" + std::to_string (device->getServer().getNumConnections());
    }

    return {};
}

Error describeCounts (Call& call)
{
    const auto add = [&call] (std::string_view name, std::uint64_t count)
    { call.answer.append (" ").append (name).append ("=").append (std::to_string (count)); };

    if (call.words[1] == "all")
        call.answer.append (" ").append (call.device->getName());

    add ("open", call.device->getServer().getNumOpens());

    for (std::size_t i = 0; i < numRequestKinds; ++i)
        add (requestNames[i], call.device->getNumReceived (static_cast<RequestKind> (i)));

    return {};
}

Error help (Call& call);

constexpr Order orders[] = {
    { "help", "", "name the orders", help },
    { "plug", "[NAME]", "plug a device in", plug },
    { "unplug",
      "DEV",
      "take it away; its requests fail from now on",
      [] (Call& call) { return call.simulator.unplug (*call.device), Error(); } },
    { "kill",
      "DEV",
      "take it away as a crash would: no more answers",
      [] (Call& call) { return call.simulator.unplug (*call.device, true), Error(); } },
    { "rate", "DEV HZ", "change the sample rate; its stream restarts", setRate },
    { "buffer", "DEV SAMPLES", "change the buffer size; its stream restarts", setBuffer },
    { "glitch",
      "DEV",
      "make the host late for the next buffer",
      [] (Call& call) { return call.getModel().glitch(), Error(); } },
    { "fail", "DEV REQUEST [COUNT|always|never]", "fail the next requests of a kind (1)", fail },
    { "stop",
      "DEV",
      "stop answering; requests stay pending",
      [] (Call& call) { return call.simulator.getHost().setServing (call.device->getServer(), false), Error(); } },
    { "resume",
      "DEV",
      "answer again, pending requests first",
      [] (Call& call) { return call.simulator.getHost().setServing (call.device->getServer(), true), Error(); } },
    { "fill", "DEV COUNT", "rewrite the event log with so many entries; it keeps that length", fill },
    { "take-view",
      "DEV",
      "take the statistics from those who map them; the next open maps others",
      [] (Call& call) { return call.device->takeView(), Error(); } },
    { "tick", "MILLISECONDS", "let time pass, with --clock orders", tick },
    { "status", "", "every device's sample rate, buffer size, log length and connections", describeStatus },
    { "counts", "DEV", "requests since the device was plugged in", describeCounts },
    { "quit", "", "take everything away and end", [] (Call& call) { return call.simulator.quit(), Error(); } },
};

Error help (Call& call)
{
    for (const auto& order : orders)
        call.answer += (call.answer.empty() ? " " : "; ") + order.describe();

    return {};
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

Error execute (Call& call)
{
    if (call.words.empty())
        return "no order; try help";

    const auto* order = std::ranges::find (orders, call.words[0], &Order::name);

    if (order == std::end (orders))
        return "no such order: " + std::string (call.words[0]) + "; try help";

    if (! order->takes (call.words.size() - 1))
        return "usage: " + order->describe();

    if (! order->namesDevices())
        return order->execute (call);

    std::vector<SimulatedDevice*> meant;

    for (const auto& device : call.simulator.getDevices())
        if (call.words[1] == "all" || call.words[1] == device->getName())
            meant.push_back (device.get());

    if (meant.empty() && call.words[1] != "all")
        return "no such device: " + std::string (call.words[1]);

    for (auto* device : meant)
    {
        device->advance();
        call.device = device;

        if (auto error = order->execute (call); ! error.empty())
            return error;
    }

    return {};
}
} // namespace

std::string executeOrder (Simulator& simulator, std::string_view line)
{
    const auto words = split (line);
    Call call { simulator, words };
    const auto error = execute (call);
    return error.empty() ? "ok" + call.answer : "error: " + error;
}

std::string getOrderHelp()
{
    std::string text;

    for (const auto& order : orders)
        text += Machine::explain (order.describe(), std::string (order.explanation));

    return text;
}

} // namespace Simulation
