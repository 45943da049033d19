#include "drivers/windows/Bridge.h"
#include "drivers/windows/Installer.h"
#include "drivers/windows/TestBus.h"
#include "drivers/windows/Windows.h"

#include <windows.h>

#include <dbt.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

/* Takes orders for the test bus and for the system around the program, one a line, on its standard input. Each is
   answered by the lines it asked for, if any, and then by "ok" or "error" and why. Ends with its input.

   While it runs it keeps the Wine session alive, and is the notification bridge once it has been told to. */

namespace
{
using DriverProtocol::requestNames;
using TestBus::Action;
using TestBus::Order;
using TestBus::State;

struct Failure : std::runtime_error
{
    using runtime_error::runtime_error;
};

void check (bool isDone, const std::string& what)
{
    if (! isDone)
        throw Failure (what + " (" + std::to_string (GetLastError()) + ")");
}

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

std::uint32_t readSlot (std::istream& words)
{
    return read<std::uint32_t> (words, "slot");
}

TestBus::RequestKind readKind (std::istream& words)
{
    const auto name = read<std::string> (words, "kind of request");
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
void plug (std::istream& words)
{
    Order order {};
    order.action = Action::plug;
    order.slot = readSlot (words);
    order.value = getFrequency();

    const auto name = readRest (words);
    std::memcpy (order.text, name.data(), std::min (name.size(), sizeof (order.text) - 1));
    send (order);
}

/** An action on the next requests of a kind. */
void trouble (Action action, std::istream& words)
{
    Order order {};
    order.action = action;
    order.slot = readSlot (words);
    order.kind = readKind (words);
    order.value = read<std::uint32_t> (words, "number of requests");
    send (order);
}

void look (std::istream& words)
{
    const auto state = send (Action::look, readSlot (words));
    std::cout << "present " << state.isPresent << "\nopen " << state.numOpen << "\nviews " << state.numViews
              << "\nwaiting " << state.numWaiting << "\nhighest-view " << state.highestView << '\n';

    for (std::size_t i = 0; i < std::size (requestNames); ++i)
        std::cout << requestNames[i] << ' ' << state.received[i] << '\n';

    std::cout << "statistics " << std::hex << std::setfill ('0');

    for (const auto byte : state.statistics)
        std::cout << std::setw (2) << unsigned { byte };

    std::cout << std::dec << std::setfill (' ') << '\n';
}

/** A program of its own that reads from the interface, beside the one under test. */
void readCounters (std::istream& words)
{
    using namespace DriverProtocol;

    TransactionBlock block {};
    block.length = fullLength;
    block.code = AccessFirmwareCounters;
    block.words[0] = ReadFirmwareCounters;
    OpenFile (getPath (readSlot (words))).control (IOCTL_DEVICE_TRANSACTION, block, block);

    std::cout << "overflows " << block.words[overflowsWord] << "\nunderruns " << block.words[underrunsWord] << "\nfifo "
              << block.words[fifoLevelWord] << "\nsyncs " << block.words[syncCountWord] << '\n';
}

/** One line per entry: timestamp, frequency, type, parameter, auxiliary value. */
void readEvents (std::istream& words)
{
    using namespace DriverProtocol;

    constexpr std::uint32_t maximumEntries = 16384;
    const OpenFile file (getPath (readSlot (words)));

    for (std::uint32_t index = 0; index < maximumEntries; ++index)
    {
        CommandEnvelope envelope {};
        envelope.code = ReadEventEntry;
        envelope.words[0] = index;
        file.control (IOCTL_DEVICE_COMMAND, envelope, envelope);

        EventLogEntry entry;
        std::memcpy (&entry, envelope.words, sizeof (entry));

        if (entry.type == noSuchEntry)
            return;

        std::cout << entry.timestamp << ' ' << entry.frequency << ' ' << entry.type << ' ' << entry.param << ' '
                  << int { entry.auxValue } << '\n';
    }
}

void notify (std::istream& words)
{
    const std::map<std::string, unsigned long> events { { "arrival", DBT_DEVICEARRIVAL },
                                                        { "query-remove", DBT_DEVICEQUERYREMOVE },
                                                        { "query-remove-failed", DBT_DEVICEQUERYREMOVEFAILED },
                                                        { "remove-pending", DBT_DEVICEREMOVEPENDING },
                                                        { "remove-complete", DBT_DEVICEREMOVECOMPLETE } };

    const auto event = events.find (read<std::string> (words, "event"));

    if (event == events.end())
        throw Failure ("no such event");

    check (Bridge::notifyProgram (event->second, getPath (readSlot (words)).c_str()), "the program does not answer");
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

void checkInstalled (unsigned long error)
{
    SetLastError (error);
    check (error == ERROR_SUCCESS, "not installed");
}

//==============================================================================
using Command = std::function<void (std::istream&)>;

const std::map<std::string, Command> commands {
    { "install", [] (std::istream& words) { checkInstalled (Installer::installTestBus (readRest (words))); } },
    { "controller",
      [] (std::istream& words) { checkInstalled (Installer::installHostController (readRest (words))); } },
    { "bridge", [] (std::istream&) { check (Bridge::start(), "no bridge"); } },
    { "forwarded", [] (std::istream&) { std::cout << Bridge::getNumForwarded() << '\n'; } },
    { "notify", notify },
    { "frequency", [] (std::istream&) { std::cout << getFrequency() << '\n'; } },

    { "plug", plug },
    { "unplug", [] (std::istream& words) { send (Action::unplug, readSlot (words)); } },
    { "kill", [] (std::istream& words) { send (Action::kill, readSlot (words)); } },
    { "fail", [] (std::istream& words) { trouble (Action::fail, words); } },
    { "warn", [] (std::istream& words) { trouble (Action::warn, words); } },
    { "hang", [] (std::istream& words) { trouble (Action::hang, words); } },
    { "hold", [] (std::istream& words) { trouble (Action::hold, words); } },
    { "release", [] (std::istream& words) { send (Action::release, readSlot (words)); } },
    { "slow",
      [] (std::istream& words)
      {
          const auto slot = readSlot (words);
          send (Action::slow, slot, read<std::uint32_t> (words, "milliseconds"));
      } },
    { "tick", [] (std::istream& words) { send (Action::tick, 0, read<std::uint32_t> (words, "milliseconds")); } },
    { "glitch", [] (std::istream& words) { send (Action::glitch, readSlot (words)); } },
    { "take-view", [] (std::istream& words) { send (Action::takeView, readSlot (words)); } },
    { "remove-link", [] (std::istream& words) { send (Action::removeLink, readSlot (words)); } },
    { "log",
      [] (std::istream& words)
      {
          const auto slot = readSlot (words);
          send (Action::limitLog, slot, read<std::uint32_t> (words, "number of entries"));
      } },
    { "look", look },
    { "hold-file", holdFile },
    { "counters", readCounters },
    { "events", readEvents },

    { "windows", [] (std::istream&) { std::cout << Windows::list(); } },
    { "move",
      [] (std::istream& words)
      {
          const auto x = read<int> (words, "x");
          const auto y = read<int> (words, "y");
          check (Windows::moveTo (readRest (words), x, y), "no such window");
      } },
    { "urgent-threads",
      [] (std::istream& words)
      {
          const auto number = Windows::countUrgentThreads (readRest (words));
          check (number >= 0, "no such window");
          std::cout << number << '\n';
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
            carryOut (line);
            std::cout << "ok" << std::endl;
        }
        catch (const Failure& failure)
        {
            std::cout << "error " << failure.what() << std::endl;
        }
    }
}
