#pragma once

#include "drivers/machine/InterfaceServer.h"
#include "drivers/machine/MachineFolder.h"
#include "protocol/RequestKind.h"
#include <functional>
#include <future>
#include <juce_core/juce_core.h>
#include <map>
#include <mutex>
#include <thread>

/** A machine folder that the program's code finds as long as this lives. One at a time. */
class TestMachine
{
public:
    explicit TestMachine (const std::vector<std::string>& controllers = {});
    ~TestMachine();

    std::string getPath() const { return folder.getPath(); }

    /** Folder and path of an interface. */
    juce::File getInterfaceFolder (const std::string& name) const;
    static juce::String getInterfacePath (const std::string& name) { return "\\\\?\\" + juce::String (name); }

private:
    Machine::MachineFolder folder;
};

/** The driver of one device interface, served on a thread of its own: it answers with the figures put into it,
    records its requests, and misbehaves when told to.
*/
class TestDriver final : private Machine::RequestHandler
{
public:
    using Kind = DriverProtocol::RequestKind;
    using enum DriverProtocol::RequestKind;

    struct Record
    {
        Kind kind;
        Machine::Bytes input;
        std::uint32_t outputSize;
    };

    struct Setup
    {
        std::string name = "device";
        bool hasRegistryKey = true;
        std::optional<Machine::Bytes> capabilities = Machine::Bytes (260);
        std::optional<std::string> uniqueName = name + '\0';
        std::size_t sectionSize = sizeof (StatisticsBlock);
        bool present = true;
    };

    using Reply = Machine::Reply;

    /** Replaces the driver's answer, on the driver's thread; no reply leaves the answer to the driver.
        @param number  counts the requests of this kind, from 0
    */
    using Override = std::function<std::optional<Reply> (Kind kind, int number)>;

    TestDriver (const TestMachine& machine, const Setup& setup);
    explicit TestDriver (const TestMachine& machine) : TestDriver (machine, Setup {}) {}
    ~TestDriver() override;

    //==============================================================================
    // Figures; set them before they are asked for.

    std::array<std::uint32_t, DriverProtocol::numStreamStatusWords> streamStatusWords {};
    std::array<std::uint32_t, DriverProtocol::TransactionBlock::numWords> counterWords {};
    std::vector<DriverProtocol::EventLogEntry> events;

    void setStatistics (const StatisticsBlock& block)
    {
        withLock ([&] { server.getSection().write (&block, sizeof (block)); });
    }

    //==============================================================================
    void setOverride (Override newOverride)
    {
        withLock ([&] { override = std::move (newOverride); });
    }

    /** Gives all requests of a kind the same answer. */
    void answerWith (Kind kind, const Reply& reply);

    void fail (Kind kind) { answerWith (kind, Reply::failure (31)); }

    void plugIn();

    void unplug()
    {
        withLock ([&] { server.unplug(); });
    }

    void kill()
    {
        withLock ([&] { server.kill(); });
    }

    /** Only for overrides, during which nobody else uses the driver. */
    Machine::Section& getSection() { return server.getSection(); }

    /** Truncates the statistics, as a device that goes does. */
    void cutSection()
    {
        withLock ([&] { server.getSection().cut(); });
    }

    int count (Kind kind)
    {
        return withLock ([&] { return counts[kind]; });
    }

    std::vector<Record> getRecords()
    {
        return withLock ([&] { return records; });
    }

    void forgetRecords();

private:
    template <typename Action>
    std::invoke_result_t<Action> withLock (const Action& action)
    {
        const std::scoped_lock locked (lock);
        return action();
    }

    Reply handle (const Machine::Request&) override;
    Reply answer (Kind kind, const Machine::Request&) const;
    void run();

    std::mutex lock;
    Override override;
    std::map<Kind, int> counts;
    std::vector<Record> records;
    bool finished = false;
    Machine::InterfaceServer server;
    std::thread thread;
};

/** Keeps a driver from answering requests of a kind until it ends. */
struct Silence
{
    Silence (TestDriver& driver, TestDriver::Kind kind)
    {
        driver.setOverride (
            [ended = ending.get_future().share(), kind] (TestDriver::Kind asked, int) -> std::optional<Machine::Reply>
            {
                if (asked == kind)
                    ended.wait();

                return {};
            });
    }

    void end() { ending.set_value(); }

    std::promise<void> ending;
};

/** Runs the message loop until the condition holds, for a minute at most; returns whether it held. */
bool runMessagesUntil (const std::function<bool()>& condition);

/** The same without the message loop: posted messages stay undelivered. */
bool waitFor (
    const std::function<bool()>& condition,
    const std::function<void()>& meanwhile = [] { std::this_thread::yield(); });

/** Number of entries of /proc/self/<what>: "fd" or "task". */
int countOfProcess (const char* what);
