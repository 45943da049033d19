#include "drivers/windows/Bridge.h"
#include "drivers/windows/TestBus.h"
#include "drivers/windows/Windows.h"
#include "protocol/ProgramNames.h"

#include <windows.h>

#include <dbt.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

/* Says "serving" when the test bus is there, then takes orders on its standard input, one a line: its own, which are
    about what only Windows has, and all that the bus takes. Each is answered by one line, "ok ..." or "error: ...".
    Ends with "quit" or its input.

    While it runs it keeps the Wine session alive, and is the notification bridge. */

namespace
{
/** Why an order could not be carried out. */
struct Failure : std::runtime_error
{
    using runtime_error::runtime_error;
};

/** Throws a Failure, with the system's last error, unless it is done. */
void check (bool isDone, const std::string& what)
{
    if (! isDone)
        throw Failure (what + " (" + std::to_string (GetLastError()) + ")");
}

/** A file or device that is open for as long as this lives. */
struct OpenFile
{
    OpenFile (const std::string& path, DWORD access, DWORD sharing, DWORD disposition)
        : handle (CreateFileA (path.c_str(), access, sharing, nullptr, disposition, 0, nullptr))
    {
        check (handle != INVALID_HANDLE_VALUE, "cannot open " + path);
    }

    ~OpenFile() { CloseHandle (handle); }

    OpenFile (const OpenFile&) = delete;
    OpenFile& operator= (const OpenFile&) = delete;

    const HANDLE handle;
};

/** What lasts from one order to the next. */
struct Remote
{
    Windows::KeyWatch keys;
    std::optional<OpenFile> heldFile;
};

/** The bus's answer to an order. */
std::string tellBus (const std::string& line)
{
    const OpenFile bus (TestBus::openPath,
                        GENERIC_READ | GENERIC_WRITE,
                        FILE_SHARE_READ | FILE_SHARE_WRITE,
                        OPEN_EXISTING);
    std::string order (line), answer (TestBus::maximumAnswer + 1, 0);
    DWORD size = 0;
    check (DeviceIoControl (bus.handle,
                            TestBus::orderCode,
                            order.data(),
                            static_cast<DWORD> (order.size()),
                            answer.data(),
                            static_cast<DWORD> (answer.size()),
                            &size,
                            nullptr)
               != FALSE,
           "the bus does not answer");
    answer.resize (size);
    return answer;
}

/** Where the program keeps the place of its window, as texts. */
using ProgramNames::settingsKey;
constexpr const char* settingsNames[] { "x", "y" };

std::string describeSettings (Remote&, std::istream&)
{
    std::string answer ("ok");

    for (const auto* name : settingsNames)
    {
        char text[64] {};
        DWORD size = sizeof (text) - 1;

        if (RegGetValueA (HKEY_CURRENT_USER, settingsKey, name, RRF_RT_REG_SZ, nullptr, text, &size) == ERROR_SUCCESS)
            answer.append (" ").append (name).append ("=").append (text);
    }

    return answer;
}

std::string store (Remote&, std::istream& words)
{
    RegDeleteTreeA (HKEY_CURRENT_USER, settingsKey);
    const auto* name = std::begin (settingsNames);

    for (std::string text; words >> text && name != std::end (settingsNames); ++name)
    {
        const auto size = static_cast<DWORD> (text.size() + 1);
        const auto error = RegSetKeyValueA (HKEY_CURRENT_USER, settingsKey, *name, REG_SZ, text.c_str(), size);
        check (error == ERROR_SUCCESS, "not stored");
    }

    return "ok";
}

std::string notify (Remote&, std::istream& words)
{
    std::string event, device;
    words >> event >> device;
    const auto isQuery = event == "query-remove";
    const auto counts = tellBus ("counts " + device);
    const std::string_view label ("path=");
    const auto path = counts.find (label);

    if ((! isQuery && event != "query-remove-failed") || path == std::string::npos)
        return "error: no such event or device";

    check (Bridge::notifyProgram (isQuery ? DBT_DEVICEQUERYREMOVE : DBT_DEVICEQUERYREMOVEFAILED,
                                  counts.substr (path + label.size(), counts.find (' ', path) - path - label.size())),
           "the program does not answer");
    return "ok";
}

/** What is left of the line. */
std::string readRest (std::istream& words)
{
    std::string rest;
    std::getline (words >> std::ws, rest);
    return rest;
}

/** As scanners do for moments. */
std::string holdFile (Remote& remote, std::istream& words)
{
    remote.heldFile.reset();

    if (const auto path = readRest (words); ! path.empty())
        remote.heldFile.emplace (path, GENERIC_READ, 0, OPEN_ALWAYS);

    return "ok";
}

std::string help (Remote& remote, std::istream& words);

std::string countUrgentThreads (Remote&, std::istream& words)
{
    const auto number = Windows::countUrgentThreads (readRest (words));
    check (number >= 0, "no such window");
    return "ok " + std::to_string (number);
}

struct Order
{
    std::string_view name;
    std::string_view arguments; // those in brackets may be left out
    std::string (*carryOut) (Remote& remote, std::istream& words);
};

constexpr Order orders[] {
    { "help", "", help },
    { "quit", "", [] (Remote&, std::istream&) { return tellBus ("reset"); } },
    { "notify", "query-remove|query-remove-failed DEV", notify },
    { "hold-file", "[PATH]", holdFile },
    { "stored", "", describeSettings },
    { "store", "[X] [Y]", store },
    { "box-text",
      "TITLE",
      [] (Remote&, std::istream& words) { return "ok " + Windows::getBoxText (readRest (words)); } },
    { "keyboard", "", [] (Remote&, std::istream&) { return "ok " + Windows::getKeyboardOwner(); } },
    { "watch-keys",
      "",
      [] (Remote& remote, std::istream&) { return std::string (remote.keys.watch() ? "ok 1" : "ok 0"); } },
    { "keys-down",
      "",
      [] (Remote& remote, std::istream&) { return "ok " + std::to_string (remote.keys.countDown()); } },
    { "urgent-threads", "TITLE", countUrgentThreads },
};

/** The bus's orders, and these. */
std::string help (Remote&, std::istream&)
{
    auto answer = tellBus ("help");

    for (const auto& order : orders)
        if (order.carryOut != help)
            answer.append ("; ")
                .append (order.name)
                .append (order.arguments.empty() ? "" : " ")
                .append (order.arguments);

    return answer;
}

/** The answer to an order. */
std::string carryOut (Remote& remote, const std::string& line)
{
    std::istringstream words (line);
    std::string name;
    words >> name;
    const auto isNamed = [&name] (const Order& order) { return order.name == name; };
    const auto* order = std::find_if (std::begin (orders), std::end (orders), isNamed);

    try
    {
        return order != std::end (orders) ? order->carryOut (remote, words) : tellBus (line);
    }
    catch (const Failure& failure)
    {
        return std::string ("error: ") + failure.what();
    }
}

void serve()
{
    constexpr DWORD intervalMs = 20;
    Remote remote;

    // The system starts the bus when the session begins, with other things.
    while (carryOut (remote, "reset") != "ok")
        Sleep (intervalMs);

    std::cout << "serving" << std::endl;

    for (std::string line; line != "quit" && std::getline (std::cin, line);)
        std::cout << carryOut (remote, line) << std::endl;

    std::exit (0);
}
} // namespace

int main()
{
    if (! Bridge::start())
        return 1;

    std::thread (serve).detach();

    for (MSG message {}; GetMessageA (&message, nullptr, 0, 0) > 0;)
        DispatchMessageA (&message);
}
