#include "tests/unit/support/TestDriver.h"

#include <cstdlib>
#include <cstring>
#include <juce_events/juce_events.h>
#include <poll.h>

using namespace DriverProtocol;

//==============================================================================
TestMachine::TestMachine (const std::vector<std::string>& controllers) : parent (juce::File::createTempFile ("machine"))
{
    parent.createDirectory();

    if (const auto error = folder.create ((parent.getFullPathName() + "/machine").toStdString(), controllers);
        ! error.empty())
        throw std::runtime_error (error);

    ::setenv ("QUENDEL_MACHINE", folder.getPath().c_str(), 1);
}

TestMachine::~TestMachine()
{
    parent.deleteRecursively();
}

juce::File TestMachine::getInterfaceFolder (const std::string& name) const
{
    return juce::File (folder.getPath()).getChildFile ("interfaces").getChildFile (juce::String (name));
}

//==============================================================================
static Machine::InterfaceSetup describeInterface (const TestMachine& machine, const TestDriver::Setup& setup)
{
    Machine::InterfaceSetup result;
    result.machineFolder = machine.getPath();
    result.name = setup.name;
    result.hasRegistryKey = setup.hasRegistryKey;
    result.capabilities = setup.capabilities;
    result.sectionSize = setup.sectionSize;

    if (setup.uniqueName)
        result.uniqueName = Machine::Bytes (setup.uniqueName->begin(), setup.uniqueName->end());

    return result;
}

TestDriver::TestDriver (const TestMachine& machine, const Setup& setup)
    : server (describeInterface (machine, setup), *this)
{
    thread = std::thread ([this] { run(); });

    if (setup.present)
        plugIn();
}

TestDriver::~TestDriver()
{
    {
        const std::scoped_lock locked (lock);
        finished = true;
    }

    thread.join();
}

void TestDriver::run()
{
    constexpr int pollIntervalMs = 2;

    for (;;)
    {
        {
            const std::scoped_lock locked (lock);

            if (finished)
                return;

            server.serve (0);
        }

        pollfd source { server.getDescriptor(), POLLIN, 0 };
        ::poll (&source, 1, pollIntervalMs);
    }
}

//==============================================================================
void TestDriver::setStatistics (const StatisticsBlock& statistics)
{
    const std::scoped_lock locked (lock);
    server.getSection().write (&statistics, sizeof (statistics));
}

void TestDriver::setOverride (Override newOverride)
{
    const std::scoped_lock locked (lock);
    override = std::move (newOverride);
}

void TestDriver::fail (Kind failing, std::uint32_t error)
{
    setOverride (
        [=] (Kind kind, int) -> std::optional<Reply>
        {
            if (kind != failing)
                return {};

            return Reply::failure (error);
        });
}

void TestDriver::plugIn()
{
    const std::scoped_lock locked (lock);

    if (const auto error = server.plugIn(); ! error.empty())
        throw std::runtime_error (error);
}

void TestDriver::unplug()
{
    const std::scoped_lock locked (lock);
    server.unplug();
}

void TestDriver::kill()
{
    const std::scoped_lock locked (lock);
    server.kill();
}

void TestDriver::cutSection()
{
    const std::scoped_lock locked (lock);
    server.getSection().cut();
}

int TestDriver::count (Kind kind)
{
    const std::scoped_lock locked (lock);
    return counts[kind];
}

std::vector<TestDriver::Record> TestDriver::getRecords()
{
    const std::scoped_lock locked (lock);
    return records;
}

void TestDriver::forgetRecords()
{
    const std::scoped_lock locked (lock);
    records.clear();
    counts.clear();
}

//==============================================================================
template <typename Struct>
static Struct readStruct (std::span<const std::uint8_t> bytes)
{
    Struct result {};
    std::memcpy (&result, bytes.data(), std::min (bytes.size(), sizeof (result)));
    return result;
}

template <typename Struct>
static TestDriver::Reply replyWith (const Struct& output)
{
    return TestDriver::Reply::success ({ reinterpret_cast<const std::uint8_t*> (&output), sizeof (output) });
}

/** Called with the lock held, from serve(). */
TestDriver::Reply TestDriver::handle (const Machine::Request& request)
{
    const auto kind = identifyRequest (request.controlCode, request.input.data(), request.input.size());
    const int number = counts[kind]++;
    records.push_back ({ kind, { request.input.begin(), request.input.end() }, request.outputSize });

    if (override)
        if (auto reply = override (kind, number))
            return *reply;

    return answer (kind, request);
}

TestDriver::Reply TestDriver::answer (Kind kind, const Machine::Request& request)
{
    auto envelope = readStruct<CommandEnvelope> (request.input);
    auto block = readStruct<TransactionBlock> (request.input);

    switch (kind)
    {
        case streamStatus:
            std::copy (streamStatusWords.begin(), streamStatusWords.end(), envelope.words);
            return replyWith (envelope);

        case eventEntry:
        {
            EventLogEntry entry {};
            entry.type = noSuchEntry;

            if (envelope.words[0] < events.size())
                entry = events[envelope.words[0]];

            std::memcpy (envelope.words, &entry, sizeof (entry));
            return replyWith (envelope);
        }

        case mapStatistics:
        {
            auto reply = replyWith (envelope);
            reply.handsOutSection = true;
            return reply;
        }

        case readCounters:
            std::copy (counterWords.begin(), counterWords.end(), block.words);
            return replyWith (block);

        case probe:
        {
            const Machine::Bytes present (request.outputSize);
            return Reply::success (present);
        }

        case resetStatistics:
        case clearCounters:
        case Kind::other:
            break;
    }

    return Reply::success (request.input);
}

//==============================================================================
static bool waitDoing (const std::function<void()>& meanwhile, const std::function<bool()>& condition)
{
    constexpr juce::uint32 limitMs = 60000;
    const auto start = juce::Time::getMillisecondCounter();

    while (! condition())
    {
        if (juce::Time::getMillisecondCounter() - start > limitMs)
            return false;

        meanwhile();
    }

    return true;
}

bool runMessagesUntil (const std::function<bool()>& condition)
{
    constexpr int sliceMs = 2;
    return waitDoing ([] { juce::MessageManager::getInstance()->runDispatchLoopUntil (sliceMs); }, condition);
}

bool waitFor (const std::function<bool()>& condition)
{
    return waitDoing ([] { std::this_thread::yield(); }, condition);
}

int countOfProcess (const char* what)
{
    return juce::File ("/proc/self").getChildFile (what).getNumberOfChildFiles (juce::File::findFilesAndDirectories);
}

int getCount (const char* variable, int usual)
{
    const char* wanted = std::getenv (variable);
    return wanted != nullptr ? std::atoi (wanted) : usual;
}
