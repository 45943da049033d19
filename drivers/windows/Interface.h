#pragma once

#include "drivers/simulator/model/DeviceModel.h"
#include "drivers/windows/Kernel.h"
#include "drivers/windows/TestBus.h"

/** One audio interface on the test bus: the simulator's model behind a device interface of the driver's class. Used by
    one thread at a time.
*/
class Interface
{
public:
    /** Large: allocate it with create(), free it with destroy(). @returns null when there is no room for it */
    static Interface* create (std::uint32_t slot, const Simulation::DeviceConfig& config, std::int64_t now);
    void destroy();

    /** Registers the device interface, with its registry values, and announces it. */
    NTSTATUS start (DEVICE_OBJECT* physicalDevice);

    /** Answers nothing any more, takes the block out of all processes and, if started, says that it is gone. */
    void stop();

    /** Answers nothing any more and keeps quiet about it. */
    void kill() { isGone = true; }

    std::uint32_t getSlot() const { return slot; }

    //==============================================================================
    /** The first open file is the one that an exclusive interface answers: under Wine no open can be refused. */
    void opened (FILE_OBJECT* file)
    {
        ++numOpens;
        owner = owner == nullptr ? file : owner;
    }

    /** Takes the block out of the process that had opened this file. */
    void closed (FILE_OBJECT* file);

    /** How a request that has just come is to be treated. */
    enum class Treatment
    {
        answer,
        hang,
        hold
    };

    Treatment receive (ULONG controlCode, const void* input, ULONG size);

    /** Answers a control request in place.

        @param process  whose request it is
        @returns        the status, and in size the bytes of the answer
    */
    NTSTATUS handle (FILE_OBJECT* file,
                     HANDLE process,
                     ULONG controlCode,
                     void* buffer,
                     ULONG inputSize,
                     ULONG outputSize,
                     ULONG& size);

    //==============================================================================
    /** What becomes of the next requests of a kind; counts that are used up one by one. */
    struct Trouble
    {
        std::uint32_t failures;
        std::uint32_t warnings;
        std::uint32_t hangs;
        std::uint32_t holds;
    };

    Trouble& troubleWith (TestBus::RequestKind kind) { return troubles[static_cast<std::uint32_t> (kind)]; }
    void endHanging();
    void makeExclusive() { isExclusive = true; }
    void slowDown (std::uint32_t milliseconds) { slownessMs = milliseconds; }
    std::uint32_t getSlownessMs() const { return slownessMs; }
    void advance (std::int64_t now);
    void glitch() { model.glitch(); }
    bool setSampleRate (std::uint32_t hz) { return model.setSampleRate (hz); }
    bool setBufferSize (std::uint32_t samples) { return model.setBufferSize (samples); }
    void limitLog (std::uint32_t length) { model.fillEventLog (length); }
    void takeViews();
    void removeLink() { IoDeleteSymbolicLink (&link); }
    void describe (TestBus::State& state) const;

private:
    /** The statistics block in a process that has opened the interface. */
    struct View
    {
        FILE_OBJECT* file;
        HANDLE process;
        void* address;
    };

    static constexpr std::uint32_t maximumViews = 8;

    Interface (std::uint32_t slotNumber, const Simulation::DeviceConfig& config, std::int64_t now);

    NTSTATUS createBlock();
    NTSTATUS writeRegistryValues();
    void publish();
    NTSTATUS map (FILE_OBJECT* file, HANDLE process, std::uint32_t& address);
    static void take (View& view);

    const std::uint32_t slot;
    bool isGone = false;
    bool isAnnounced = false;
    bool isExclusive = false;
    FILE_OBJECT* owner = nullptr;
    std::uint32_t numOpens = 0;
    UNICODE_STRING link {};
    HANDLE section = nullptr;
    void* block = nullptr; // in the driver's own process
    View views[maximumViews] {};
    std::uint32_t received[DriverProtocol::numRequestKinds] {};
    Trouble troubles[DriverProtocol::numRequestKinds] {};
    std::uint32_t slownessMs = 0;
    Simulation::DeviceModel model;
};
