#pragma once

#include "drivers/machine/FileDescriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/** Comes back as soon as the condition holds. Throws when it has not come to hold after a long time. */
void waitUntil (const std::string& what, const std::function<bool()>& condition);

/** A program that was started, with pipes to its input and output. It ends with this object, and with us. */
class Process
{
public:
    /** Variables to set, over those that we have ourselves; none: to take away. */
    using Environment = std::map<std::string, std::optional<std::string>>;
    using Command = std::vector<std::string>;

    explicit Process (const Command& command, const Environment& environment = {});
    Process (const Process&) = delete;
    Process& operator= (const Process&) = delete;
    ~Process();

    /** Writes a line to its input. */
    void send (std::string line);

    /** The next line of its output. */
    std::string readLine();

    /** The rest of its output, up to its end. */
    std::string readOutput();

    /** What it has written to its errors so far. */
    std::string readErrors() const;

    bool isRunning();

    /** Its exit code, or 128 and the signal that ended it. */
    int waitForExit();

    void kill();

private:
    pid_t id = -1;
    std::optional<int> exitCode;
    Machine::FileDescriptor input, output, errors;
};

/** Runs a program to its end and returns its output; throws unless the exit code is 0 or the other one allowed. */
std::string run (const Process::Command& command, const Process::Environment& environment, int allowedExitCode = 0);

struct Bounds
{
    int x = 0, y = 0, width = 0, height = 0;
    bool operator== (const Bounds&) const = default;
};

std::ostream& operator<< (std::ostream& stream, const Bounds& bounds);

/** Pixels, three bytes each: red, green, blue. */
struct Picture
{
    int width = 0, height = 0;
    std::string bytes;

    Picture crop (const Bounds& area) const;

    /** Red, green and blue as 0xRRGGBB. */
    std::uint32_t at (int x, int y) const;

    bool operator== (const Picture&) const = default;
};

/** A virtual display of its own, 1280 x 1024, and what a user sees and does on it. */
class Desktop
{
public:
    using Window = std::string;
    using Windows = std::vector<Window>;

    explicit Desktop (bool hasWindowManager);

    /** What a program needs to open its windows here. */
    const Process::Environment& getEnvironment() const { return environment; }

    /** The windows on screen that have a name. */
    Windows findWindows (const std::string& name) const;

    /** Waits for a window of that name that is none of the others, and for it to have the keyboard. */
    Window waitForWindow (const std::string& name, const Windows& others = {});
    void waitUntilGone (const std::string& name, const Windows& others = {});

    /** The window's content on the screen, without the frame that a window manager puts around it. */
    Bounds getBounds (const Window& window) const;
    void moveTo (const Window& window, int x, int y) const;
    Picture getPicture (const Window& window) const;

    /** Presses and releases keys, one after the other, as they are called by the X server. */
    void press (const std::vector<std::string>& keys);
    void type (const std::string& text);
    void click (const Window& window, int x, int y) const;

private:
    std::string runHere (const Process::Command& command, int allowedExitCode = 0) const;
    bool hasKeyboard (const Window& window) const;
    void nudge();

    Process server;
    Process::Environment environment;
    std::optional<Process> windowManager;
    int nudgeBy = 1;
};
