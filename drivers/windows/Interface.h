#pragma once

#include "drivers/simulator/model/DeviceModel.h"
#include "drivers/windows/Answer.h"
#include "drivers/windows/Kernel.h"

/** One audio interface on the test bus: the simulator's model behind a device interface of the driver's class. Used by
    one thread at a time.
*/
class Interface
{
public:
    using RequestKind = DriverProtocol::RequestKind;

    /** Large: allocate it with create(), free it with destroy().

        @param number  of its place on the bus, which is the last part of its path
        @returns       null when there is no room for it
    */
    static Interface*
        create (DEVICE_OBJECT* device, std::uint32_t number, const Simulation::DeviceConfig& config, std::int64_t now);

    /** Also answers the requests that are kept. */
    void destroy();

    /** Registers the device interface, with its registry values, and announces it. */
    NTSTATUS start();

    /** Answers nothing any more, takes the block out of all processes and, if started, says that it is gone. */
    void stop();

    /** Answers nothing any more and keeps quiet about it. */
    void kill() { isGone = true; }

    DEVICE_OBJECT* getDevice() const { return device; }
    std::uint32_t getNumber() const { return number; }
    const Simulation::DeviceConfig& getConfig() const { return model.getConfig(); }

    //==============================================================================
    void opened() { ++numOpens; }

    /** Answers a control request, or keeps it.

        @param cancel  called by the system for one that is kept; then forget() it
    */
    NTSTATUS handle (IRP* irp, std::int64_t now, DRIVER_CANCEL* cancel);

    void forget (const IRP* irp);

    //==============================================================================
    /** What can become of requests. */
    enum class Fault
    {
        fail, /**< They fail. */
        warn, /**< They fail with a warning, and an answer that means nothing. */
        hang, /**< They are kept until they are cancelled, or resume(). */
        hold  /**< As hang, but they cannot be cancelled. */
    };

    /** So many of the next requests of a kind end in this. */
    void injectFault (Fault fault, RequestKind kind, std::uint32_t count)
    {
        faults[static_cast<std::size_t> (fault)][static_cast<std::size_t> (kind)] = count;
    }

    /** Answers the requests that are kept, and keeps none any more. */
    void resume();

    /** Lets nobody open it, or everybody again. */
    void setOpening (bool canBeOpened);

    void slowDown (std::uint32_t milliseconds) { slownessMs = milliseconds; }

    /** Moves the model on and shows its statistics to whoever maps them. */
    void advance (std::int64_t now);

    /** Takes the block out of the process that has opened a file, or out of all. */
    void takeViews (const FILE_OBJECT* file);

    Simulation::DeviceModel& getModel() { return model; }

    /** Its name and path, opens so far, views of the block and their highest address, requests that are kept, and
        requests so far by kind. */
    void describe (Answer& answer) const;

private:
    /** The statistics block in a process that has opened the interface. */
    struct View
    {
        FILE_OBJECT* file;
        HANDLE process;
        void* address;
    };

    /** A request that is answered later, or never. */
    struct Kept
    {
        IRP* irp;
        HANDLE process;
        bool canBeCancelled;
    };

    static constexpr std::size_t numFaults = 4;

    Interface (DEVICE_OBJECT* object, std::uint32_t itsNumber, const Simulation::DeviceConfig& config, std::int64_t now)
        : device (object),
          number (itsNumber),
          model (config, now)
    {
    }

    NTSTATUS createBlock();
    NTSTATUS writeRegistryValues();
    void publish();
    NTSTATUS map (FILE_OBJECT* file, HANDLE process, std::uint32_t& address);
    bool isIn (Fault fault, RequestKind kind);
    NTSTATUS keep (IRP* irp, DRIVER_CANCEL* cancel);
    void answerKept();
    NTSTATUS answer (IRP* irp, HANDLE process);
    NTSTATUS answer (IRP* irp, HANDLE process, ULONG& size);

    DEVICE_OBJECT* const device;
    const std::uint32_t number;
    bool isGone = false;
    bool isAnnounced = false;
    bool isLocked = false;
    std::uint32_t numOpens = 0;
    UNICODE_STRING link {};
    HANDLE section = nullptr;
    void* block = nullptr; // in the driver's own process
    View views[8] {};
    Kept kept[32] {};
    std::uint32_t received[DriverProtocol::numRequestKinds] {};
    std::uint32_t faults[numFaults][DriverProtocol::numRequestKinds] {};
    std::uint32_t slownessMs = 0;
    Simulation::DeviceModel model;
};
