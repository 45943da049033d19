#include "drivers/windows/Orders.h"

#include "drivers/windows/Bus.h"

#include <cstdlib>
#include <cstring>

namespace
{
using DriverProtocol::numRequestKinds;
using DriverProtocol::requestNames;
using Fault = Interface::Fault;

constexpr std::uint32_t always = 0xFFFFFFFF;

/** What an order works with; empty where it has no such argument. */
struct Call
{
    Answer& answer;
    Bus::Slot* slot = nullptr; // DEV, one after the other
    Interface* interface = nullptr;
    Simulation::DeviceModel* model = nullptr;
    std::size_t kind = 0;     // REQUEST; numRequestKinds stands for "open"
    std::uint32_t number = 1; // COUNT and the like
    const char* text = "";    // NAME and the like
};

/** Why an order was not carried out; null when it was. */
using Error = const char*;
constexpr Error none = nullptr;

struct Order
{
    const char* name;
    const char* arguments; // each is one word; those in brackets may be left out
    Error (*carryOut) (const Call& call);
};

//==============================================================================
template <Fault fault>
Error injectFault (const Call& call)
{
    if (call.kind < numRequestKinds)
        call.interface->injectFault (fault, static_cast<Interface::RequestKind> (call.kind), call.number);
    else if (fault == Fault::fail && (call.number == 0 || call.number == always))
        call.interface->setOpening (call.number == 0);
    else
        return "open fails always or never";

    return none;
}

Error stop (const Call& call)
{
    for (std::size_t kind = 0; kind < numRequestKinds; ++kind)
        call.interface->injectFault (Fault::hold, static_cast<Interface::RequestKind> (kind), always);

    return none;
}

Error fill (const Call& call)
{
    if (call.number > DriverProtocol::MaxEventsPerDevice)
        return "a log has 0 to 16384 entries";

    call.model->fillEventLog (call.number);
    return none;
}

Error setClock (const Call& call)
{
    const auto isReal = std::strcmp (call.text, "real") == 0;

    if (! isReal && std::strcmp (call.text, "orders") != 0)
        return "a clock is real, or goes by orders";

    Bus::setClock (isReal);
    return none;
}

Error tick (const Call& call)
{
    constexpr std::uint32_t limit = 60'000;

    if (call.number > limit)
        return "a tick is 0 to 60000 milliseconds";

    return Bus::tick (call.number) ? none : "the clock goes by itself";
}

Error describeStatus (const Call& call)
{
    for (const auto& [interface, name] : Bus::slots)
        if (interface != nullptr)
            call.answer.add ("; %s rate=%u buffer=%u events=%u",
                             name,
                             interface->getConfig().sampleRate,
                             interface->getConfig().bufferSize,
                             interface->getModel().getEventLogLength());

    return none;
}

Error help (const Call& call);

/** Those that the simulator has mean the same there. */
constexpr Order orders[] {
    { "help", "", help },
    { "plug", "[NAME]", [] (const Call& call) { return Bus::plug (call.text, call.answer); } },
    { "unplug", "DEV", [] (const Call& call) { return Bus::unplug (*call.slot), none; } },
    { "kill", "DEV", [] (const Call& call) { return call.interface->kill(), Bus::unplug (*call.slot), none; } },
    { "rate",
      "DEV HZ",
      [] (const Call& call)
      { return call.model->setSampleRate (call.number) ? none : "a rate is 22050 to 192000 Hz"; } },
    { "buffer",
      "DEV SAMPLES",
      [] (const Call& call)
      { return call.model->setBufferSize (call.number) ? none : "a buffer is 16 to 8192 samples"; } },
    { "glitch", "DEV", [] (const Call& call) { return call.model->glitch(), none; } },
    { "fail", "DEV REQUEST [COUNT|always|never]", injectFault<Fault::fail> },
    { "warn", "DEV REQUEST [COUNT|always|never]", injectFault<Fault::warn> },
    { "hang", "DEV REQUEST [COUNT|always|never]", injectFault<Fault::hang> },
    { "hold", "DEV REQUEST [COUNT|always|never]", injectFault<Fault::hold> },
    { "stop", "DEV", stop },
    { "resume", "DEV", [] (const Call& call) { return call.interface->resume(), none; } },
    { "slow", "DEV MILLISECONDS", [] (const Call& call) { return call.interface->slowDown (call.number), none; } },
    { "fill", "DEV COUNT", fill },
    { "clock", "real|orders", setClock },
    { "tick", "MILLISECONDS", tick },
    { "status", "", describeStatus },
    { "counts", "DEV", [] (const Call& call) { return call.interface->describe (call.answer), none; } },
    { "reset", "", [] (const Call&) { return Bus::reset(), none; } },
};

Error help (const Call& call)
{
    for (const auto& [name, arguments, carryOut] : orders)
        call.answer.add (" %s%s%s;", name, *arguments == 0 ? "" : " ", arguments);

    return none;
}

//==============================================================================
/** The words of a line; of too many, one more than any order has. */
struct Words
{
    explicit Words (const char* line)
    {
        std::strncpy (text, line, TestBus::maximumOrder);
        auto isBetween = true;

        for (auto* position = text; *position != 0; ++position)
        {
            const auto isBlank = std::strchr (" \t\r", *position) != nullptr;

            if (isBetween && ! isBlank && number < sizeof (words) / sizeof (*words))
                words[number++] = position;

            isBetween = isBlank;
            *position = isBlank ? 0 : *position;
        }
    }

    char text[TestBus::maximumOrder + 1] {};
    const char* words[5] {};
    std::size_t number = 0;
};

bool readKind (const char* word, std::size_t& kind)
{
    kind = 0;

    while (kind < numRequestKinds && std::strcmp (word, requestNames[kind]) != 0)
        ++kind;

    return kind < numRequestKinds || std::strcmp (word, "open") == 0;
}

bool readNumber (const char* word, std::uint32_t& number)
{
    char* end = nullptr;
    const auto value = _strtoui64 (word, &end, 10);
    number = static_cast<std::uint32_t> (value);
    return *word >= '0' && *word <= '9' && *end == 0 && value < always;
}

/** Reads what a word is said to be; devices come later. */
bool readArgument (const char* kind, const char* word, Call& call)
{
    call.text = word;

    if (std::strcmp (kind, "REQUEST") == 0)
        return readKind (word, call.kind);

    if (std::strstr (kind, "always") != nullptr
        && (std::strcmp (word, "always") == 0 || std::strcmp (word, "never") == 0))
    {
        call.number = *word == 'a' ? always : 0;
        return true;
    }

    const auto isText =
        std::strcmp (kind, "DEV") == 0 || std::strcmp (kind, "[NAME]") == 0 || (*kind >= 'a' && *kind <= 'z');
    return isText || readNumber (word, call.number);
}

/** Carries an order out on every device that is meant, up to an error. */
Error carryOutOnDevices (const Order& order, const char* name, Call& call)
{
    const auto isAll = std::strcmp (name, "all") == 0;
    Error error = isAll ? none : "no such device";

    for (auto& slot : Bus::slots)
    {
        if (slot.interface == nullptr || ! (isAll || std::strcmp (name, slot.name) == 0))
            continue;

        call.slot = &slot;
        call.interface = slot.interface;
        call.model = &slot.interface->getModel();
        call.interface->advance (Bus::readClock());

        if (error = order.carryOut (call); error != none)
            break;
    }

    return error;
}

Error carryOut (const Words& line, Call& call)
{
    for (const auto& order : orders)
    {
        if (line.number == 0 || std::strcmp (line.words[0], order.name) != 0)
            continue;

        const Words arguments (order.arguments);
        auto isWrong = line.number - 1 > arguments.number;

        for (std::size_t i = 0; i < arguments.number; ++i)
            isWrong = isWrong
                      || (i + 1 < line.number ? ! readArgument (arguments.words[i], line.words[i + 1], call)
                                              : *arguments.words[i] != '[');

        if (isWrong)
            return "wrong arguments; try help";

        return std::strncmp (order.arguments, "DEV", 3) == 0 ? carryOutOnDevices (order, line.words[1], call)
                                                             : order.carryOut (call);
    }

    return "no such order; try help";
}
} // namespace

void executeOrder (const char* line, Answer& answer)
{
    Call call { .answer = answer };
    answer.add ("ok");

    if (const auto error = carryOut (Words (line), call); error != none)
    {
        answer.restart();
        answer.add ("error: %s", error);
    }
}
