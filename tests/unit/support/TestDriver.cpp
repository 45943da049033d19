#include "tests/unit/support/TestDriver.h"

#include <cstdlib>
#include <cstring>
#include <juce_events/juce_events.h>
#include <poll.h>

using namespace DriverProtocol;

//==============================================================================
/** All machines of a process share one path: the environment must not change while the watching thread reads it. */
static juce::File findFolder()
{
    static const auto folder = []
    {
        const auto made = juce::File::createTempFile ("machine").getChildFile ("machine");
        ::setenv ("QUENDEL_MACHINE", made.getFullPathName().toRawUTF8(), 1);
        return made;
    }();

    return folder;
}

TestMachine::TestMachine (const std::vector<std::string>& controllers)
{
    const auto path = findFolder();
    path.getParentDirectory().createDirectory();

    if (const auto error = folder.create (path.getFullPathName().toStdString(), controllers); ! error.empty())
        throw std::runtime_error (error);
}

TestMachine::~TestMachine()
{
    findFolder().getParentDirectory().deleteRecursively();
}

juce::File TestMachine::getInterfaceFolder (const std::string& name) const
{
    return juce::File (folder.getPath()).getChildFile ("interfaces").getChildFile (juce::String (name));
}

//==============================================================================
static Machine::InterfaceSetup describeInterface (const TestMachine& machine, const TestDriver::Setup& setup)
{
    std::optional<Machine::Bytes> uniqueName;

    if (setup.uniqueName)
        uniqueName.emplace (setup.uniqueName->begin(), setup.uniqueName->end());

    return { machine.getPath(), setup.name, setup.hasRegistryKey, setup.capabilities, uniqueName, setup.sectionSize };
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
    withLock ([&] { finished = true; });
    thread.join();
}

void TestDriver::run()
{
    constexpr int pollIntervalMs = 2;
    pollfd source { server.getDescriptor(), POLLIN, 0 };

    while (withLock ([&] { return ! finished; }))
    {
        withLock ([&] { server.serve(); });
        ::poll (&source, 1, pollIntervalMs);
    }
}

//==============================================================================
void TestDriver::answerWith (Kind kind, const Reply& reply)
{
    setOverride ([=] (Kind asked, int) { return asked == kind ? std::optional (reply) : std::nullopt; });
}

void TestDriver::plugIn()
{
    if (const auto error = withLock ([&] { return server.plugIn(); }); ! error.empty())
        throw std::runtime_error (error);
}

void TestDriver::forgetRecords()
{
    const std::scoped_lock locked (lock);
    records.clear();
    counts.clear();
}

//==============================================================================
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

/** Returns the request with the result in its words. */
TestDriver::Reply TestDriver::answer (Kind kind, const Machine::Request& request) const
{
    constexpr auto commandWords = offsetof (CommandEnvelope, words), transactionWords = TransactionBlock::headerSize;
    Machine::Bytes bytes (request.input.begin(), request.input.end());
    bytes.resize (request.outputSize);
    const auto put = [&bytes] (std::size_t offset, const auto& result)
    { std::memcpy (bytes.data() + offset, &result, sizeof (result)); };

    if (kind == streamStatus)
        put (commandWords, streamStatusWords);
    else if (kind == readCounters)
        put (transactionWords, counterWords);
    else if (kind == probe)
        std::fill (bytes.begin(), bytes.end(), std::uint8_t { 0 });

    if (kind == eventEntry)
    {
        std::uint32_t index = 0;
        std::memcpy (&index, bytes.data() + commandWords, sizeof (index));
        EventLogEntry none {};
        none.type = noSuchEntry;
        put (commandWords, index < events.size() ? events[index] : none);
    }

    auto reply = Reply::success (bytes);
    reply.handsOutSection = kind == mapStatistics;
    return reply;
}

//==============================================================================
bool waitFor (const std::function<bool()>& condition, const std::function<void()>& meanwhile)
{
    constexpr juce::uint32 limitMs = 60000;
    const auto start = juce::Time::getMillisecondCounter();

    for (; ! condition(); meanwhile())
        if (juce::Time::getMillisecondCounter() - start > limitMs)
            return false;

    return true;
}

bool runMessagesUntil (const std::function<bool()>& condition)
{
    constexpr int sliceMs = 2;
    return waitFor (condition, [] { juce::MessageManager::getInstance()->runDispatchLoopUntil (sliceMs); });
}

int countOfProcess (const char* what)
{
    return juce::File ("/proc/self").getChildFile (what).getNumberOfChildFiles (juce::File::findFilesAndDirectories);
}
