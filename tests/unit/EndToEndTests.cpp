#include "events/EventNames.h"
#include "tests/unit/support/Desktop.h"
#include "tests/unit/support/TestDriver.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace
{
namespace fs = std::filesystem;

const std::string eventLog = "Event log";
const std::string saveDialog = "Save event report";
const std::string question = "File already exists";

enum Button
{
    saveButton = 1, // and the quarter of the view's width that it stands at
    resetButton,
    eventsButton
};

/** A folder of its own, which goes with everything in it. */
class PrivateFolder
{
public:
    PrivateFolder()
    {
        auto pattern = (fs::temp_directory_path() / "quendel-tests-XXXXXX").string();

        if (::mkdtemp (pattern.data()) == nullptr)
            throw std::runtime_error ("cannot make a folder " + pattern);

        path = pattern;
    }

    PrivateFolder (const PrivateFolder&) = delete;
    PrivateFolder& operator= (const PrivateFolder&) = delete;

    ~PrivateFolder()
    {
        std::error_code ignored;
        fs::remove_all (path, ignored);
    }

    const fs::path& get() const { return path; }

private:
    fs::path path;
};

std::string readFile (const fs::path& path)
{
    std::ifstream file (path, std::ios::binary);
    return { std::istreambuf_iterator<char> (file), {} };
}

/** The simulator and the orders it takes. */
class Driver
{
public:
    using Counts = std::map<std::string, int>;

    Driver (const Process::Environment& environment, const Process::Command& options)
        : process (makeCommand (options), environment)
    {
        process.readLine();
    }

    std::string order (const std::string& text)
    {
        process.send (text);
        auto answer = process.readLine();

        if (! answer.starts_with ("ok"))
            throw std::runtime_error (text + ": " + answer);

        return answer;
    }

    /** How often a device was asked for what. */
    Counts getCounts (const std::string& device)
    {
        std::istringstream words (order ("counts " + device));
        Counts counts;

        for (std::string word; words >> word;)
            if (const auto separator = word.find ('='); separator != std::string::npos)
                counts[word.substr (0, separator)] = std::stoi (word.substr (separator + 1));

        return counts;
    }

    /** Waits until the view has asked a device anew so many times. */
    void waitForTicks (const std::string& device, int ticks = 3)
    {
        const auto enough = getCounts (device)["read-counters"] + ticks;
        waitUntil ("the view asks " + device, [&] { return getCounts (device)["read-counters"] >= enough; });
    }

private:
    static Process::Command makeCommand (const Process::Command& options)
    {
        Process::Command command { QUENDEL_SIMULATOR };
        command.insert (command.end(), options.begin(), options.end());
        return command;
    }

    Process process;
};
} // namespace

/** The built program on a display of its own, with a home and a machine folder of its own. */
class EndToEndFixture : public testing::Test
{
protected:
    explicit EndToEndFixture (bool hasWindowManager)
        : desktop (hasWindowManager),
          environment (desktop.getEnvironment())
    {
        fs::create_directories (documents);
        fs::create_directory (folder.get() / "runtime");
        environment["HOME"] = home.string();
        environment["XDG_RUNTIME_DIR"] = (folder.get() / "runtime").string();
        environment["QUENDEL_MACHINE"] = {};
    }

    void SetUp() override
    {
        const Machine::FileDescriptor file (::open ("/var/tmp/Quendel lock", O_RDONLY | O_CLOEXEC));
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;

        if (file.isOpen() && ::fcntl (file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK)
            FAIL() << "process " << lock.l_pid << " is a Quendel already, and there can be only one on a machine";
    }

    void TearDown() override
    {
        if (! HasFailure() || ! program)
            return;

        std::cerr << "The program said: " << getErrors (*program) << std::endl;

        if (program->isRunning() && ! view.empty())
            std::cerr << "Its window is " << desktop.getBounds (view) << std::endl;
    }

    //==============================================================================
    void startDriver (const std::string& names) { driver.emplace (environment, Process::Command { "--names", names }); }

    /** Starts the program and waits for its window. */
    void launch()
    {
        program.emplace (Process::Command { QUENDEL_PROGRAM }, environment);
        view = desktop.waitForWindow ("Quendel");
    }

    /** Also waits until the window is where it belongs, so that a click finds what it is meant for. */
    void start()
    {
        launch();
        const bool isStored = fs::exists (settings);
        const int x = isStored ? std::atoi (getStored ("x").c_str()) : 64;
        const int y = isStored ? std::atoi (getStored ("y").c_str()) : 51;
        waitUntil ("the view is in its place",
                   [&]
                   {
                       const auto bounds = desktop.getBounds (view);
                       return bounds.x == x && bounds.y == y;
                   });
    }

    /** What a program wrote to its errors, without what the toolkit always says in builds for debugging. */
    static std::string getErrors (const Process& process)
    {
        return std::regex_replace (process.readErrors(),
                                   std::regex ("(JUCE v|ERROR: X returned)[^\n]*\n|\n(?=ERROR: X)"),
                                   "");
    }

    void expectExit()
    {
        EXPECT_EQ (program->waitForExit(), 0);
        EXPECT_EQ (getErrors (*program), "");
    }

    void quit()
    {
        desktop.press ({ "Escape" });
        expectExit();
    }

    void click (Button button, int numDevices = 2) { desktop.click (view, button * getWidth (numDevices) / 4, 619); }

    static int getWidth (int numDevices) { return 150 * numDevices + 190; }

    Desktop::Window waitForMessageBox() { return desktop.waitForWindow ("Quendel", { view }); }

    /** Closes what is open before the view with a key; afterwards the view has the keyboard again and goes on. */
    void close (const std::string& name, const std::string& key)
    {
        desktop.press ({ key });
        desktop.waitUntilGone (name, { view });
        EXPECT_EQ (desktop.waitForWindow ("Quendel"), view);
        driver->waitForTicks ("Alpha", 2);
    }

    std::string getStored (const std::string& name) const
    {
        const auto text = readFile (settings);
        std::smatch match;
        std::regex_search (text, match, std::regex ("name=\"" + name + "\" val=\"([^\"]*)\""));
        return match.size() > 1 ? match.str (1) : "none";
    }

    void expectStored (const Bounds& place) const
    {
        EXPECT_EQ (getStored ("x"), std::to_string (place.x));
        EXPECT_EQ (getStored ("y"), std::to_string (place.y));
    }

    void waitForBounds (const Bounds& bounds)
    {
        std::ostringstream text;
        text << "the view is " << bounds;
        waitUntil (text.str(), [&] { return desktop.getBounds (view) == bounds; });
    }

    const PrivateFolder folder;
    const fs::path home = folder.get() / "home";
    const fs::path documents = home / "Documents";
    const fs::path settings = home / ".config/Vendrel/Quendel.settings";
    Desktop desktop;
    Process::Environment environment;
    std::optional<Driver> driver;
    std::optional<Process> program;
    Desktop::Window view;
};

/** Where a window manager makes no difference. */
class EndToEnd : public EndToEndFixture
{
protected:
    EndToEnd() : EndToEndFixture (false) {}
};

/** Where it makes one. */
class EndToEndWindows : public EndToEndFixture, public testing::WithParamInterface<bool>
{
protected:
    EndToEndWindows() : EndToEndFixture (GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P (EndToEnd,
                          EndToEndWindows,
                          testing::Bool(),
                          [] (const auto& test) { return test.param ? "managed" : "bare"; });

//==============================================================================
TEST_P (EndToEndWindows, ShowsTwoDevicesAndAsksForNothingElse)
{
    startDriver ("Alpha,Beta");
    start();
    waitForBounds ({ 64, 51, 490, 652 });
    driver->waitForTicks ("Alpha");

    auto alpha = driver->getCounts ("Alpha");
    auto beta = driver->getCounts ("Beta");
    const auto before = desktop.getPicture (view);
    driver->waitForTicks ("Beta", 12);
    const auto after = desktop.getPicture (view);

    for (const auto& column : { Bounds { 170, 110, 150, 486 }, Bounds { 320, 110, 150, 486 } })
        EXPECT_FALSE (before.crop (column) == after.crop (column)) << "the figures at " << column << " stand still";

    for (auto& [request, count] : driver->getCounts ("Alpha"))
        alpha[request] = count - alpha[request];

    for (auto& [request, count] : driver->getCounts ("Beta"))
        beta[request] = count - beta[request];

    // A tick can be halfway when the requests are counted.
    EXPECT_GE (beta["read-counters"], 12);
    EXPECT_NEAR (alpha["read-counters"], beta["read-counters"], 1);
    EXPECT_NEAR (beta["stream-status"], beta["read-counters"], 1);

    beta["read-counters"] = beta["stream-status"] = alpha["read-counters"] = 0;

    for (const auto& counts : { alpha, beta })
        for (const auto& [request, count] : counts)
            EXPECT_EQ (count, 0) << request;

    quit();
    expectStored ({ 64, 51, 0, 0 });
}

//==============================================================================
TEST_P (EndToEndWindows, ReturnResetsOnceWhateverWasClicked)
{
    startDriver ("Alpha,Beta");
    start();
    int resets = 0;

    const auto expectReset = [&]
    {
        ++resets;
        waitUntil ("a reset", [&] { return driver->getCounts ("Alpha")["clear-counters"] >= resets; });

        // A key that means nothing, for a click that was left over to show itself.
        desktop.press ({ "a" });
        driver->waitForTicks ("Alpha");

        for (const auto* device : { "Alpha", "Beta" })
            for (const auto* request : { "reset-statistics", "clear-counters" })
                EXPECT_EQ (driver->getCounts (device)[request], resets) << request << " of " << device;
    };

    desktop.press ({ "Return" });
    expectReset();

    click (resetButton);
    expectReset();
    desktop.press ({ "Return" });
    expectReset();

    click (saveButton);
    waitForMessageBox();
    close ("Quendel", "Return");
    desktop.press ({ "Return" });
    expectReset();

    click (eventsButton);
    desktop.waitForWindow (eventLog);
    close (eventLog, "Escape");
    desktop.press ({ "Return" });
    expectReset();

    quit();
}

TEST_P (EndToEndWindows, EscapeQuitsWhateverWasClicked)
{
    startDriver ("Alpha,Beta");
    launch();
    quit();

    start();
    click (resetButton);
    waitUntil ("a reset", [&] { return driver->getCounts ("Alpha")["clear-counters"] == 1; });
    quit();

    start();
    click (saveButton);
    waitForMessageBox();
    close ("Quendel", "Escape");
    quit();

    start();
    click (eventsButton);
    desktop.waitForWindow (eventLog);
    close (eventLog, "Escape");
    quit();
}

TEST_P (EndToEndWindows, TabAndSpaceReachEveryButton)
{
    startDriver ("Alpha,Beta");
    start();
    desktop.press ({ "Tab", "space" });
    waitForMessageBox();
    close ("Quendel", "Return");
    EXPECT_TRUE (fs::exists (documents / "Quendel report.txt"));
    quit();

    start();
    desktop.press ({ "Tab", "Tab", "space" });
    waitUntil ("a reset", [&] { return driver->getCounts ("Alpha")["clear-counters"] == 1; });
    desktop.press ({ "Tab", "space" });
    desktop.waitForWindow (eventLog);
    close (eventLog, "Escape");
    quit();
}

//==============================================================================
TEST_P (EndToEndWindows, ComesBackWhereItWasLeft)
{
    startDriver ("Alpha,Beta");
    start();

    // By then it has settled in its frame, if it has one.
    driver->waitForTicks ("Alpha");
    desktop.moveTo (view, 300, 200);
    waitUntil ("the view has moved", [&] { return desktop.getBounds (view).x >= 300; });
    const auto place = desktop.getBounds (view);
    quit();
    expectStored (place);

    for (int i = 0; i < 4; ++i)
    {
        start();
        driver->waitForTicks ("Alpha");
        EXPECT_EQ (desktop.getBounds (view), place);
        quit();
        expectStored (place);
    }

    // Before it has settled.
    for (int i = 0; i < 4; ++i)
    {
        launch();
        quit();
        expectStored (place);
    }

    std::ofstream (settings) << R"(<PROPERTIES><VALUE name="x" val="abc"/><VALUE name="y" val="77"/></PROPERTIES>)";
    start();
    waitForBounds ({ 0, 77, 490, 652 });

    if (GetParam())
    {
        desktop.press ({ "alt+F4" });
        expectExit();
    }
    else
    {
        quit();
    }

    expectStored ({ 0, 77, 0, 0 });
}

TEST_P (EndToEndWindows, SaysThatThereIsNoDevice)
{
    program.emplace (Process::Command { QUENDEL_PROGRAM }, environment);
    const auto box = desktop.waitForWindow ("Quendel");
    EXPECT_EQ (desktop.findWindows (".+").size(), 1U);
    EXPECT_LT (desktop.getBounds (box).height, 300);

    desktop.press ({ "Return" });
    expectExit();
    EXPECT_FALSE (fs::exists (settings));
}

//==============================================================================
TEST_P (EndToEndWindows, FollowsTheDevices)
{
    constexpr Bounds name { 170, 92, 150, 18 }, secondName { 320, 92, 150, 18 }, rate { 170, 22, 112, 14 };

    startDriver ("Alpha,Beta");
    start();
    driver->waitForTicks ("Alpha");
    auto place = desktop.getBounds (view);
    const auto beta = desktop.getPicture (view).crop (name);

    // The newest is leftmost and gives the sample rate.
    driver->order ("plug Gamma");
    place.width = 640;
    waitForBounds (place);
    driver->waitForTicks ("Gamma");
    const auto three = desktop.getPicture (view);
    EXPECT_EQ (three.crop (secondName), beta);
    EXPECT_FALSE (three.crop (name) == beta);
    EXPECT_GT (driver->getCounts ("Gamma")["stream-status"], 0);

    driver->order ("rate Beta 44100");
    driver->waitForTicks ("Beta");
    EXPECT_EQ (desktop.getPicture (view).crop (rate), three.crop (rate));
    driver->order ("rate Gamma 96000");
    waitUntil ("another sample rate", [&] { return desktop.getPicture (view).crop (rate) != three.crop (rate); });

    driver->order ("unplug Alpha");
    place.width = 490;
    waitForBounds (place);

    driver->order ("kill Gamma");
    place.width = 340;
    waitForBounds (place);
    driver->waitForTicks ("Beta");
    EXPECT_EQ (desktop.getPicture (view).crop (name), beta);

    driver->order ("unplug Beta");
    expectExit();
    expectStored (place);
}

TEST_P (EndToEndWindows, EndsWithTheLastDeviceWhateverIsOpen)
{
    startDriver ("Alpha");

    const std::function<void()> waysToOpen[] = {
        [this]
        {
            click (saveButton, 1);
            waitForMessageBox();
        },
        [this]
        {
            click (eventsButton, 1);
            desktop.waitForWindow (eventLog);
        },
        [this]
        {
            click (eventsButton, 1);
            desktop.click (desktop.waitForWindow (eventLog), 400, 577);
            desktop.waitForWindow (saveDialog);
        },
    };

    for (const auto& open : waysToOpen)
    {
        fs::remove (settings);
        start();
        open();
        driver->order ("kill all");
        expectExit();
        expectStored ({ 64, 51, 0, 0 });
        driver->order ("plug");
    }

    EXPECT_EQ (std::distance (fs::directory_iterator (documents), {}), 1) << "more was saved than the statistics";
}

//==============================================================================
TEST_F (EndToEnd, RunsOnlyOnce)
{
    startDriver ("Alpha,Beta");
    start();
    driver->waitForTicks ("Alpha");
    const auto opens = driver->getCounts ("Alpha")["open"];

    Process second ({ QUENDEL_PROGRAM }, environment);
    EXPECT_EQ (second.waitForExit(), 0);
    EXPECT_EQ (second.readOutput() + getErrors (second), "");

    driver->waitForTicks ("Alpha");
    EXPECT_EQ (driver->getCounts ("Alpha")["open"], opens);
    EXPECT_EQ (desktop.findWindows (".+"), Desktop::Windows { view });

    program->kill();
    desktop.waitUntilGone ("Quendel");
    start();
    driver->waitForTicks ("Alpha");
    quit();
}

TEST_F (EndToEnd, SaysThatThereIsNoDisplay)
{
    startDriver ("Alpha");
    environment["DISPLAY"] = ":59999";
    Process blind ({ QUENDEL_PROGRAM }, environment);
    EXPECT_EQ (blind.waitForExit(), 1);
    EXPECT_EQ (blind.readOutput(), "");

    const auto errors = getErrors (blind);
    EXPECT_NE (errors.find ("display"), std::string::npos) << errors;
    EXPECT_EQ (std::count (errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_FALSE (fs::exists (settings));
}

TEST_F (EndToEnd, GoesOnWhenADriverStopsAnswering)
{
    startDriver ("Alpha,Beta");
    start();
    driver->waitForTicks ("Beta");

    // The newest, which is asked for most.
    driver->order ("stop Beta");
    const auto asked = driver->getCounts ("Beta")["read-counters"];
    driver->waitForTicks ("Alpha", 6);
    EXPECT_LE (driver->getCounts ("Beta")["read-counters"], asked + 1);

    driver->order ("resume Beta");
    driver->waitForTicks ("Beta", 6);

    driver->order ("stop all");
    quit();
    expectStored ({ 64, 51, 0, 0 });
}

/** Starts and stops, while interfaces never stop coming and going. QUENDEL_STORM_ROUNDS says how often. */
TEST_F (EndToEnd, StartsAndStopsInAStormOfChanges)
{
    startDriver ("Alpha");
    const int rounds = getCount ("QUENDEL_STORM_ROUNDS", 5);
    std::atomic<bool> calm { false };

    std::thread storm (
        [&]
        {
            for (int i = 0; ! calm; ++i)
            {
                const auto name = "S" + std::to_string (i % 5);
                driver->order ("plug " + name);
                driver->order ((i % 3 == 0 ? "kill " : "unplug ") + name);
            }
        });

    // A failed wait ends the test, but not before the storm has.
    try
    {
        for (int round = 0; round < rounds && ! HasFailure(); ++round)
        {
            // A removal before there is a view ends the program as well.
            program.emplace (Process::Command { QUENDEL_PROGRAM }, environment);
            std::this_thread::sleep_for (std::chrono::milliseconds (round % 7 * 100));
            waitUntil ("the program ends",
                       [&]
                       {
                           desktop.press ({ "Escape" });
                           return ! program->isRunning();
                       });
            expectExit();
        }
    }
    catch (const std::runtime_error& error)
    {
        ADD_FAILURE() << error.what();
    }

    calm = true;
    storm.join();
}

//==============================================================================
namespace
{
/** A statistics report without what differs from run to run: V is a version, T a time, N a number. */
std::string maskFigures (const std::string& report)
{
    constexpr auto date = "[1-9]\\d? [A-Z][a-z]{2} \\d{4} [1-9]\\d?:\\d\\d:\\d\\d[ap]m\r\n";
    auto text = std::regex_replace (report, std::regex (date), "DATE\r\n");
    text = std::regex_replace (text, std::regex ("code: \\d+\\.\\d+(\\.\\d+){0,2}\r\n"), "code: V\r\n");
    text = std::regex_replace (text, std::regex ("(\n   [^:\n]+: +)-?\\d+\\.\\d{3}(?= msec\r\n)"), "$1T");
    return std::regex_replace (text, std::regex ("(\n   [^:\n]+: +)\\d+(?=\r\n)"), "$1N");
}
} // namespace

TEST_F (EndToEnd, SavesTheStatistics)
{
    const auto report = documents / "Quendel report.txt";
    driver.emplace (
        environment,
        Process::Command { "--names", "Alpha,Gerät-Ω", "--buffer", "512", "--controllers", "PCI\\A,PCI\\B" });
    start();
    driver->waitForTicks ("Alpha");

    const auto save = [&] (int numDevices)
    {
        click (saveButton, numDevices);
        auto picture = desktop.getPicture (waitForMessageBox());
        close ("Quendel", "Return");
        return picture;
    };

    // The second device has no DSP, the third no FPGA.
    const auto saved = save (2);
    const auto first = readFile (report);
    driver->order ("plug Gamma");
    waitForBounds ({ 64, 51, 640, 652 });
    driver->waitForTicks ("Gamma");
    EXPECT_EQ (save (3), saved);

    const auto both = readFile (report);
    EXPECT_EQ (both.substr (0, first.size()), first);
    EXPECT_EQ (maskFigures (both), readFile (fs::path (QUENDEL_GOLD_FOLDER) / "statistics-saved-twice.txt"));

    // A file that cannot be written, of two kinds.
    fs::rename (report, home / "kept");
    fs::create_directory (report);
    const auto failed = save (3);
    EXPECT_FALSE (failed == saved) << "the message is the same as after a success";
    EXPECT_TRUE (fs::is_empty (report));

    fs::remove_all (documents);
    EXPECT_EQ (save (3), failed);
    EXPECT_FALSE (fs::exists (documents));
    quit();
}

//==============================================================================
namespace
{
struct EventLine
{
    int row;
    double milliseconds, microseconds;
    std::string device, name;
};

/** Lines of an event report; one that is not well-formed is a failure. */
std::vector<EventLine> parseEvents (const std::string& text)
{
    static const std::regex form ("(\\d{6}),(-?\\d+\\.\\d{3}),(\\d+),(?:([^,:]*):-?\\d+)?,([^,]+)\r");
    std::istringstream stream (text);
    std::vector<EventLine> lines;
    std::smatch match;

    for (std::string line; std::getline (stream, line);)
    {
        if (! std::regex_match (line, match, form) || stream.eof())
        {
            ADD_FAILURE() << "a broken line: " << line;
            break;
        }

        lines.push_back ({ std::stoi (match[1]), std::stod (match[2]), std::stod (match[3]), match[4], match[5] });
        EXPECT_EQ (lines.back().row, static_cast<int> (lines.size()) - 1);
    }

    return lines;
}

/** The type of an event; -1 for a name that no type has. */
int getTypeOf (const EventLine& line)
{
    constexpr int numTypes = 24;
    int type = 0;

    while (type < numTypes && EventNames::get (type).toStdString() != line.name)
        ++type;

    return type < numTypes ? type : -1;
}
} // namespace

TEST_P (EndToEndWindows, SavesTheEvents)
{
    const auto report = documents / "mine.txt";
    startDriver ("Alpha,Beta");
    driver->order ("fill all 300");
    start();
    click (eventsButton);
    const auto events = desktop.waitForWindow (eventLog);
    const auto bounds = desktop.getBounds (events);
    EXPECT_EQ (bounds.width, 800);
    EXPECT_EQ (bounds.height, 600);

    const auto openDialog = [&]
    {
        desktop.click (events, 400, 577);
        return desktop.waitForWindow (saveDialog);
    };

    const auto waitForReport = [&] (const fs::path& file)
    {
        waitUntil ("a report of 300 lines",
                   [&]
                   {
                       const auto text = readFile (file);
                       return std::count (text.begin(), text.end(), '\n') == 300;
                   });
        EXPECT_EQ (desktop.waitForWindow (eventLog), events);
        return readFile (file);
    };

    // Under the name that is proposed, in the order of time.
    openDialog();
    desktop.press ({ "Return" });
    desktop.waitUntilGone (saveDialog);
    waitUntil ("a report", [&] { return ! fs::is_empty (documents); });
    const auto proposed = fs::directory_iterator (documents)->path();
    const std::regex form ("Quendel event log [1-9]\\d? [A-Z][a-z]{2} \\d{4} [1-9]\\d?_\\d\\d_\\d\\d[ap]m\\.txt");
    EXPECT_TRUE (std::regex_match (proposed.filename().string(), form)) << proposed;

    const auto inTime = waitForReport (proposed);
    const auto byTime = parseEvents (inTime);
    EXPECT_TRUE (std::is_sorted (byTime.begin(),
                                 byTime.end(),
                                 [] (auto& a, auto& b) { return a.milliseconds < b.milliseconds; }));
    EXPECT_EQ (byTime.at (0).milliseconds, 0.0);
    EXPECT_EQ (byTime.at (0).microseconds, 0.0);
    EXPECT_TRUE (std::all_of (byTime.begin(),
                              byTime.end(),
                              [] (auto& line) { return line.device.empty() || line.device == "Beta"; }));

    // A click on the header sorts what is shown and what is saved; an existing file is asked about.
    const auto unsorted = desktop.getPicture (events).crop ({ 551, 58, 200, 400 });
    desktop.click (events, 651, 44);
    waitUntil ("rows in another order",
               [&] {
                   return desktop.getPicture (events).crop ({ 551, 58, 200, 400 }) != unsorted;
               });

    std::ofstream (report) << "precious";
    desktop.click (openDialog(), 300, 437);
    desktop.press ({ "ctrl+a" });
    desktop.type ("mine.txt");
    desktop.press ({ "Return" });
    desktop.waitForWindow (question);
    desktop.press ({ "Escape" });
    desktop.waitForWindow (saveDialog);
    EXPECT_EQ (readFile (report), "precious");
    desktop.press ({ "Return" });
    desktop.waitForWindow (question);
    EXPECT_EQ (readFile (report), "precious");
    desktop.press ({ "Return" });

    const auto byType = parseEvents (waitForReport (report));
    EXPECT_TRUE (
        std::is_sorted (byType.begin(), byType.end(), [] (auto& a, auto& b) { return getTypeOf (a) < getTypeOf (b); }));
    EXPECT_GE (getTypeOf (byType.front()), 0);
    EXPECT_LT (getTypeOf (byType.front()), getTypeOf (byType.back()));

    driver->waitForTicks ("Alpha");
    close (eventLog, "Escape");
    quit();
}
