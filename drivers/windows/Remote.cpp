#include "drivers/windows/Bridge.h"
#include "drivers/windows/Failure.h"
#include "drivers/windows/Installer.h"
#include "drivers/windows/TestBus.h"
#include "drivers/windows/Windows.h"
#include "protocol/ProgramNames.h"

#include <windows.h>

#include <dbt.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/* Takes orders for the test bus, one a line, on its standard input: those that the simulator takes, and some about what
   only Windows has. Each is answered by one line, "ok ..." or "error: ...". Ends with its input.

   While it runs it keeps the Wine session alive, and is the notification bridge once it has been told to. */

namespace
{
using DriverProtocol::requestNames;
using TestBus::Action;
using TestBus::Order;
using TestBus::State;

/** A file or device that is open for as long as this lives. */
class OpenFile
{
public:
    explicit OpenFile (const std::string& path)
        : handle (CreateFileA (path.c_str(),
                               GENERIC_READ | GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE,
                               nullptr,
                               OPEN_EXISTING,
                               0,
                               nullptr))
    {
        check (handle != INVALID_HANDLE_VALUE, "cannot open " + path);
    }

    ~OpenFile() { CloseHandle (handle); }

    OpenFile (const OpenFile&) = delete;
    OpenFile& operator= (const OpenFile&) = delete;

    template <typename Input, typename Output>
    void control (DWORD code, const Input& input, Output& output) const
    {
        DWORD size = 0;
        auto request = input;
        check (DeviceIoControl (handle, code, &request, sizeof (request), &output, sizeof (output), &size, nullptr)
                   != FALSE,
               "the request failed");
    }

private:
    HANDLE handle;
};

//==============================================================================
template <typename Number>
Number read (std::istream& words, const char* what)
{
    Number number {};

    if (! (words >> number))
        throw Failure (std::string ("wanted: ") + what);

    return number;
}

/** Slots by the names of the devices that have been plugged in; each keeps its own. */
std::map<std::string, std::uint32_t> slotsByName;

State send (const Order& order)
{
    State state {};
    OpenFile (TestBus::openPath).control (TestBus::orderCode, order, state);
    return state;
}

State send (Action action, std::uint32_t slot, std::int64_t value = 0)
{
    Order order {};
    order.action = action;
    order.slot = slot;
    order.value = value;
    return send (order);
}

bool isPresent (std::uint32_t slot)
{
    return send (Action::look, slot).isPresent != 0;
}

/** The slots that a device's name, or "all", stands for. */
std::vector<std::uint32_t> readSlots (std::istream& words)
{
    const auto wanted = read<std::string> (words, "device");
    std::vector<std::uint32_t> slots;

    for (const auto& [name, slot] : slotsByName)
        if ((wanted == "all" || wanted == name) && isPresent (slot))
            slots.push_back (slot);

    if (slots.empty() && wanted != "all")
        throw Failure ("no such device: " + wanted);

    std::sort (slots.begin(), slots.end());
    return slots;
}

TestBus::RequestKind findKind (const std::string& name)
{
    const auto found = std::find (std::begin (requestNames), std::end (requestNames), name);

    if (found == std::end (requestNames))
        throw Failure ("no such kind of request: " + name);

    return static_cast<TestBus::RequestKind> (found - std::begin (requestNames));
}

/** What is left of the line. */
std::string readRest (std::istream& words)
{
    std::string rest;
    std::getline (words >> std::ws, rest);
    return rest;
}

std::int64_t getFrequency()
{
    LARGE_INTEGER frequency {};
    QueryPerformanceFrequency (&frequency);
    return frequency.QuadPart;
}

/** Of the interface in a slot, as the system makes it of what the bus says. */
std::string getPath (std::uint32_t slot)
{
    return "\\\\?\\testbus#tamrix#000" + std::to_string (slot + 1) + "#" + DriverProtocol::interfaceClassText;
}

//==============================================================================
/** Whether a program can open the interface. */
bool isAnnounced (std::uint32_t slot)
{
    try
    {
        OpenFile file (getPath (slot));
        return true;
    }
    catch (const Failure&)
    {
        return false;
    }
}

/** The system starts and removes interfaces on a thread of its own. */
void waitUntil (std::uint32_t slot, bool shouldBeThere)
{
    constexpr DWORD patienceMs = 20'000, intervalMs = 5;

    for (DWORD waited = 0; isAnnounced (slot) != shouldBeThere; waited += intervalMs)
    {
        check (waited < patienceMs, getPath (slot) + (shouldBeThere ? " does not come" : " does not go"));
        Sleep (intervalMs);
    }
}

void plug (std::istream& words)
{
    const auto name = read<std::string> (words, "name");
    const auto slot = slotsByName.emplace (name, slotsByName.size()).first->second;

    Order order {};
    order.action = Action::plug;
    order.slot = slot;
    order.value = getFrequency();
    std::memcpy (order.text, name.data(), std::min (name.size(), sizeof (order.text) - 1));
    send (order);
    waitUntil (slot, true);
}

/** An action on every device that is named, with a number behind the name. */
void applyToAll (Action action, std::istream& words, const char* number)
{
    const auto slots = readSlots (words);
    const auto value = read<std::uint32_t> (words, number);

    for (const auto slot : slots)
        send (action, slot, value);
}

void applyToAll (Action action, std::istream& words)
{
    for (const auto slot : readSlots (words))
        send (action, slot);
}

void trouble (Action action, std::uint32_t slot, TestBus::RequestKind kind, std::uint32_t count)
{
    Order order {};
    order.action = action;
    order.slot = slot;
    order.kind = kind;
    order.value = count;
    send (order);
}

constexpr std::uint32_t always = 0xFFFFFFFF;

/** How often; once if it is not said. */
std::uint32_t readCount (std::istream& words)
{
    std::string count = "1";
    words >> count;

    if (count == "always" || count == "never")
        return count == "always" ? always : 0;

    std::istringstream number (count);
    return read<std::uint32_t> (number, "how often");
}

/** Interfaces that nobody can open, nor hear of when they go: under Wine that takes the link away. */
std::set<std::uint32_t> locked;

void lock (std::uint32_t slot)
{
    send (Action::removeLink, slot);
    locked.insert (slot);
}

/** An action on the next requests of a kind. An interface cannot refuse to be opened: its link goes, for good. */
void trouble (Action action, std::istream& words)
{
    const auto slots = readSlots (words);
    const auto name = read<std::string> (words, "kind of request");
    const auto count = readCount (words);

    for (const auto slot : slots)
    {
        if (name == "open")
            lock (slot);
        else
            trouble (action, slot, findKind (name), count);
    }
}

void stopAnswering (std::istream& words)
{
    for (const auto slot : readSlots (words))
        for (std::uint32_t kind = 0; kind < DriverProtocol::numRequestKinds; ++kind)
            trouble (Action::hold, slot, static_cast<TestBus::RequestKind> (kind), always);
}

void unplug (std::uint32_t slot)
{
    send (Action::unplug, slot);

    if (locked.erase (slot) > 0)
        Bridge::notifyProgram (DBT_DEVICEREMOVECOMPLETE, getPath (slot).c_str());

    waitUntil (slot, false);
}

void unplug (std::istream& words)
{
    for (const auto slot : readSlots (words))
        unplug (slot);
}

void kill (std::istream& words)
{
    for (const auto slot : readSlots (words))
    {
        send (Action::kill, slot);
        unplug (slot);
    }
}

/** What the answer says beside "ok". */
std::ostringstream answer;

/** What was asked of the devices so far, and what they hold. */
void describeCounts (std::istream& words)
{
    for (const auto slot : readSlots (words))
    {
        const auto state = send (Action::look, slot);
        answer << " open=" << state.numOpens << " views=" << state.numViews << " waiting=" << state.numWaiting
               << " highest-view=" << state.highestView;

        for (std::size_t i = 0; i < std::size (requestNames); ++i)
            answer << ' ' << requestNames[i] << '=' << state.received[i];
    }
}

/** Where the program keeps the place of its window, as texts. */
constexpr const char* settingsNames[] { "x", "y" };

void describeSettings (std::istream&)
{
    for (const auto* name : settingsNames)
    {
        char text[64] {};
        DWORD size = sizeof (text) - 1;

        if (RegGetValueA (HKEY_CURRENT_USER, ProgramNames::settingsKey, name, RRF_RT_REG_SZ, nullptr, text, &size)
            == ERROR_SUCCESS)
            answer << ' ' << name << '=' << text;
    }
}

void store (std::istream& words)
{
    for (const auto* name : settingsNames)
    {
        const auto text = read<std::string> (words, name);
        const auto size = static_cast<DWORD> (text.size() + 1);
        const auto error =
            RegSetKeyValueA (HKEY_CURRENT_USER, ProgramNames::settingsKey, name, REG_SZ, text.c_str(), size);
        check (error == ERROR_SUCCESS, "not stored");
    }
}

/** An empty bus without a past, and no settings. */
void reset (std::istream&)
{
    std::istringstream all ("all");
    unplug (all);
    slotsByName.clear();
    RegDeleteTreeA (HKEY_CURRENT_USER, ProgramNames::settingsKey);
}

void notify (std::istream& words)
{
    const std::map<std::string, unsigned long> events { { "query-remove", DBT_DEVICEQUERYREMOVE },
                                                        { "query-remove-failed", DBT_DEVICEQUERYREMOVEFAILED } };

    const auto event = events.find (read<std::string> (words, "event"));

    if (event == events.end())
        throw Failure ("no such event");

    for (const auto slot : readSlots (words))
        check (Bridge::notifyProgram (event->second, getPath (slot).c_str()), "the program does not answer");
}

/** Opens a file so that nobody else can, as scanners do for moments; without a name it lets go of it. */
void holdFile (std::istream& words)
{
    static HANDLE held = INVALID_HANDLE_VALUE;
    CloseHandle (std::exchange (held, INVALID_HANDLE_VALUE));

    if (const auto path = readRest (words); ! path.empty())
    {
        held = CreateFileA (path.c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
        check (held != INVALID_HANDLE_VALUE, "cannot open " + path);
    }
}

//==============================================================================
using Command = std::function<void (std::istream&)>;

const std::map<std::string, Command> commands {
    { "install", [] (std::istream& words) { Installer::installTestBus (readRest (words)); } },
    { "controller", [] (std::istream& words) { Installer::installHostController (readRest (words)); } },
    { "bridge", [] (std::istream&) { check (Bridge::start(), "no bridge"); } },
    { "notify", notify },
    { "reset", reset },

    { "plug", plug },
    { "unplug", [] (std::istream& words) { unplug (words); } },
    { "kill", kill },
    { "rate", [] (std::istream& words) { applyToAll (Action::rate, words, "Hz"); } },
    { "buffer", [] (std::istream& words) { applyToAll (Action::buffer, words, "samples"); } },
    { "glitch", [] (std::istream& words) { applyToAll (Action::glitch, words); } },
    { "fail", [] (std::istream& words) { trouble (Action::fail, words); } },
    { "warn", [] (std::istream& words) { trouble (Action::warn, words); } },
    { "hang", [] (std::istream& words) { trouble (Action::hang, words); } },
    { "hold", [] (std::istream& words) { trouble (Action::hold, words); } },
    { "exclusive", [] (std::istream& words) { applyToAll (Action::exclusive, words); } },
    { "slow", [] (std::istream& words) { applyToAll (Action::slow, words, "milliseconds"); } },
    { "stop", stopAnswering },
    { "resume", [] (std::istream& words) { applyToAll (Action::release, words); } },
    { "fill", [] (std::istream& words) { applyToAll (Action::limitLog, words, "number of entries"); } },
    { "take-view", [] (std::istream& words) { applyToAll (Action::takeView, words); } },
    { "tick", [] (std::istream& words) { send (Action::tick, 0, read<std::uint32_t> (words, "milliseconds")); } },
    { "hold-file", holdFile },
    { "counts", describeCounts },
    { "stored", describeSettings },
    { "store", store },
    { "box-text", [] (std::istream& words) { answer << ' ' << Windows::getBoxText (readRest (words)); } },
    { "keyboard", [] (std::istream&) { answer << ' ' << Windows::getKeyboardOwner(); } },
    { "watch-keys", [] (std::istream&) { answer << (Windows::watchKeys() ? " 1" : " 0"); } },
    { "keys-down", [] (std::istream&) { answer << ' ' << Windows::countKeysDown(); } },
    { "urgent-threads",
      [] (std::istream& words)
      {
          const auto number = Windows::countUrgentThreads (readRest (words));
          check (number >= 0, "no such window");
          answer << ' ' << number;
      } },
};

void carryOut (const std::string& line)
{
    std::istringstream words (line);
    const auto command = commands.find (read<std::string> (words, "command"));

    if (command == commands.end())
        throw Failure ("no such command");

    command->second (words);
}
} // namespace

int main()
{
    for (std::string line; std::getline (std::cin, line);)
    {
        try
        {
            answer.str ({});
            carryOut (line);
            std::cout << "ok" << answer.str() << std::endl;
        }
        catch (const Failure& failure)
        {
            std::cout << "error: " << failure.what() << std::endl;
        }
    }
}
