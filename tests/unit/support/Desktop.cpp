#include "tests/unit/support/Desktop.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <thread>

using Machine::FileDescriptor;
using Clock = std::chrono::steady_clock;

namespace
{
// Long enough for a loaded machine and for a build with sanitizers.
constexpr auto patience = std::chrono::seconds (60);

constexpr int notFound = 127;

[[noreturn]] void fail (const std::string& what)
{
    throw std::runtime_error (what);
}

struct Pipe
{
    FileDescriptor readEnd, writeEnd;

    Pipe()
    {
        std::array<int, 2> ends {};

        if (::pipe2 (ends.data(), O_CLOEXEC) != 0)
            fail ("no pipe left");

        readEnd = FileDescriptor (ends[0]);
        writeEnd = FileDescriptor (ends[1]);
    }
};

std::vector<std::string> makeEnvironment (const Process::Environment& changes)
{
    std::vector<std::string> variables;

    for (char** variable = environ; *variable != nullptr; ++variable)
    {
        const std::string text (*variable);

        if (! changes.contains (text.substr (0, text.find ('='))))
            variables.push_back (text);
    }

    for (const auto& [name, value] : changes)
        if (value)
            variables.push_back (name + "=" + *value);

    return variables;
}

std::vector<char*> toPointers (const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve (texts.size() + 1);

    for (const auto& text : texts)
        pointers.push_back (const_cast<char*> (text.c_str()));

    pointers.push_back (nullptr);
    return pointers;
}

std::string describe (const Process::Command& command)
{
    std::string text;

    for (const auto& word : command)
        text += (text.empty() ? "" : " ") + word;

    return text;
}

/** Adds what there is to read to a text; false at its end. */
bool readMore (const FileDescriptor& source, std::string& text, std::size_t numBytes)
{
    pollfd ready { source.get(), POLLIN, 0 };

    if (::poll (&ready, 1, static_cast<int> (std::chrono::milliseconds (patience).count())) == 0)
        fail ("a program that was started says nothing any more");

    const auto start = text.size();
    text.resize (start + numBytes);
    const auto size = ::read (source.get(), text.data() + start, numBytes);
    text.resize (start + static_cast<std::size_t> (std::max<ssize_t> (size, 0)));
    return size > 0 || (size < 0 && errno == EINTR);
}
} // namespace

void waitUntil (const std::string& what, const std::function<bool()>& condition)
{
    constexpr auto interval = std::chrono::milliseconds (10);

    for (const auto end = Clock::now() + patience; ! condition(); std::this_thread::sleep_for (interval))
        if (Clock::now() > end)
            fail ("waited in vain: " + what);
}

//==============================================================================
Process::Process (const Command& command, const Environment& changes) : errors (::memfd_create ("errors", MFD_CLOEXEC))
{
    Pipe inputPipe, outputPipe;
    const auto variables = makeEnvironment (changes);
    const auto argumentPointers = toPointers (command);
    const auto variablePointers = toPointers (variables);

    id = ::fork();

    if (id < 0)
        fail ("no process left for " + describe (command));

    if (id == 0)
    {
        // A test that is cut short takes what it started with it.
        ::prctl (PR_SET_PDEATHSIG, SIGKILL);
        ::dup2 (inputPipe.readEnd.get(), STDIN_FILENO);
        ::dup2 (outputPipe.writeEnd.get(), STDOUT_FILENO);
        ::dup2 (errors.get(), STDERR_FILENO);
        ::execvpe (argumentPointers[0], argumentPointers.data(), variablePointers.data());
        ::_exit (notFound);
    }

    input = std::move (inputPipe.writeEnd);
    output = std::move (outputPipe.readEnd);
}

Process::~Process()
{
    kill();
}

void Process::kill()
{
    if (exitCode)
        return;

    int status = 0;
    ::kill (id, SIGKILL);
    ::waitpid (id, &status, 0);
    exitCode = 128 + SIGKILL;
}

void Process::send (std::string line)
{
    line += "\n";

    // Of a program that is gone there is no answer, which is said there.
    if (isRunning() && ::write (input.get(), line.data(), line.size()) < 0)
        fail ("cannot write to a program that was started");
}

std::string Process::readLine()
{
    std::string line;

    while (! line.ends_with ('\n'))
        if (! readMore (output, line, 1))
            fail ("a program ended that was to say something: " + readErrors());

    line.pop_back();
    return line;
}

std::string Process::readOutput()
{
    std::string text;

    while (readMore (output, text, 65536))
    {
    }

    return text;
}

std::string Process::readErrors() const
{
    struct stat status = {};
    ::fstat (errors.get(), &status);
    std::string text (static_cast<std::size_t> (status.st_size), ' ');
    return ::pread (errors.get(), text.data(), text.size(), 0) < 0 ? "" : text;
}

bool Process::isRunning()
{
    int status = 0;

    if (! exitCode && ::waitpid (id, &status, WNOHANG) == id)
        exitCode = WIFEXITED (status) ? WEXITSTATUS (status) : 128 + WTERMSIG (status);

    return ! exitCode;
}

int Process::waitForExit()
{
    waitUntil ("a program ends", [this] { return ! isRunning(); });
    return *exitCode;
}

std::string run (const Process::Command& command, const Process::Environment& environment, int allowedExitCode)
{
    Process process (command, environment);
    auto output = process.readOutput();
    const auto errors = process.readErrors();
    const auto exitCode = process.waitForExit();

    if (exitCode == notFound)
        fail (command[0] + " cannot be run; is it installed?");

    if (exitCode != 0 && exitCode != allowedExitCode)
        fail (describe (command) + " failed: " + errors);

    return output;
}

//==============================================================================
std::ostream& operator<< (std::ostream& stream, const Bounds& bounds)
{
    return stream << bounds.width << "x" << bounds.height << " at " << bounds.x << "," << bounds.y;
}

Picture Picture::crop (const Bounds& area) const
{
    if (area.x < 0 || area.y < 0 || area.x + area.width > width || area.y + area.height > height)
        fail ("the window is smaller than it should be");

    Picture part { area.width, area.height, {} };

    const auto toOffset = [this] (int x, int y)
    { return 3 * (std::size_t (y) * std::size_t (width) + std::size_t (x)); };

    for (int y = area.y; y < area.y + area.height; ++y)
        part.bytes += bytes.substr (toOffset (area.x, y), toOffset (area.width, 0));

    return part;
}

std::uint32_t Picture::at (int x, int y) const
{
    std::uint32_t colour = 0;

    for (const auto byte : crop ({ x, y, 1, 1 }).bytes)
        colour = colour << 8 | static_cast<unsigned char> (byte);

    return colour;
}

//==============================================================================
Desktop::Desktop (bool hasWindowManager)
    : server ({ "Xvfb", "-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset" })
{
    try
    {
        environment["DISPLAY"] = ":" + server.readLine();
    }
    catch (const std::runtime_error& error)
    {
        fail (std::string ("Xvfb cannot be run; is it installed? ") + error.what());
    }

    if (! hasWindowManager)
        return;

    windowManager.emplace (Process::Command { "openbox" }, environment);

    const auto isManaged = [this]
    {
        if (! windowManager->isRunning())
            fail ("openbox cannot be run; is it installed?");

        return runHere ({ "xprop", "-root", "_NET_SUPPORTING_WM_CHECK" }).find ("window id") != std::string::npos;
    };

    waitUntil ("openbox manages the windows", isManaged);
}

std::string Desktop::runHere (const Process::Command& command, int allowedExitCode) const
{
    return run (command, environment, allowedExitCode);
}

Desktop::Windows Desktop::findWindows (const std::string& name) const
{
    std::istringstream ids (runHere ({ "xdotool", "search", "--onlyvisible", "--name", "^" + name + "$" }, 1));
    Windows windows;

    for (Window window; std::getline (ids, window);)
        windows.push_back (window);

    return windows;
}

static Desktop::Windows without (Desktop::Windows windows, const Desktop::Windows& others)
{
    std::erase_if (windows,
                   [&] (const auto& window)
                   { return std::find (others.begin(), others.end(), window) != others.end(); });
    return windows;
}

bool Desktop::hasKeyboard (const Window& window) const
{
    return runHere ({ "xdotool", "getwindowfocus", "-f" }, 1) == window + "\n";
}

Desktop::Window Desktop::waitForWindow (const std::string& name, const Windows& others)
{
    Windows found;

    waitUntil ("a window \"" + name + "\" with the keyboard",
               [&]
               {
                   nudge();
                   found = without (findWindows (name), others);
                   return ! found.empty() && hasKeyboard (found[0]);
               });

    return found[0];
}

void Desktop::waitUntilGone (const std::string& name, const Windows& others)
{
    waitUntil ("no window \"" + name + "\" any more",
               [&]
               {
                   nudge();
                   return without (findWindows (name), others).empty();
               });
}

/** A number behind a caption. */
static int findNumber (const std::string& text, const std::string& caption)
{
    const auto position = text.find (caption);

    if (position == std::string::npos)
        fail ("there is no \"" + caption + "\" in " + text);

    return std::atoi (text.c_str() + position + caption.size());
}

Bounds Desktop::getBounds (const Window& window) const
{
    const auto text = runHere ({ "xwininfo", "-id", window });
    return { findNumber (text, "Absolute upper-left X:"),
             findNumber (text, "Absolute upper-left Y:"),
             findNumber (text, "Width:"),
             findNumber (text, "Height:") };
}

void Desktop::moveTo (const Window& window, int x, int y) const
{
    runHere ({ "xdotool", "windowmove", window, std::to_string (x), std::to_string (y) });
}

Picture Desktop::getPicture (const Window& window) const
{
    const auto bounds = getBounds (window);
    auto bytes = runHere ({ "import", "-silent", "-window", window, "-depth", "8", "rgb:-" });

    if (bytes.size() != std::size_t (bounds.width) * std::size_t (bounds.height) * 3)
        fail ("the picture of a window has not the window's size");

    return { bounds.width, bounds.height, std::move (bytes) };
}

//==============================================================================
/** Around changes of the focus, events can lie in a program's queue until something else happens. */
void Desktop::nudge()
{
    nudgeBy = -nudgeBy;
    runHere ({ "xdotool", "mousemove_relative", "--", std::to_string (nudgeBy), "0" });
}

void Desktop::press (const std::vector<std::string>& keys)
{
    for (const auto& key : keys)
    {
        runHere ({ "xdotool", "key", key });
        nudge();
    }
}

void Desktop::type (const std::string& text)
{
    runHere ({ "xdotool", "type", text });
    nudge();
}

void Desktop::click (const Window& window, int x, int y) const
{
    runHere ({ "xdotool", "mousemove", "--window", window, std::to_string (x), std::to_string (y), "click", "1" });
}
