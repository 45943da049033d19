#include "drivers/windows/Interface.h"

#include <cstring>
#include <initializer_list>
#include <new>

namespace
{
constexpr auto interfaceClass = DriverProtocol::makeInterfaceClass<GUID>();

/** The status that the system takes for a Windows error code. */
NTSTATUS statusOf (std::uint32_t error)
{
    constexpr std::uint32_t isErrorCode = 0xC0010000;
    return error == Machine::noError ? STATUS_SUCCESS : static_cast<NTSTATUS> (isErrorCode | error);
}

DriverProtocol::RequestKind identify (IRP* irp)
{
    const auto& sizes = IoGetCurrentIrpStackLocation (irp)->Parameters.DeviceIoControl;
    return DriverProtocol::identifyRequest (sizes.IoControlCode,
                                            irp->AssociatedIrp.SystemBuffer,
                                            sizes.InputBufferLength);
}

/** Leaves the address alone when it cannot be done. */
NTSTATUS mapSection (HANDLE section, HANDLE process, ULONG protection, void*& address)
{
    void* result = nullptr;
    SIZE_T size = 0;
    const auto status = ZwMapViewOfSection (section, process, &result, 0, 0, nullptr, &size, ViewUnmap, 0, protection);
    address = NT_SUCCESS (status) ? result : address;
    return status;
}
} // namespace

//==============================================================================
Interface* Interface::create (DEVICE_OBJECT* device,
                              std::uint32_t number,
                              const Simulation::DeviceConfig& config,
                              std::int64_t now)
{
    void* memory = ExAllocatePool (NonPagedPool, sizeof (Interface));

    if (memory == nullptr)
        return nullptr;

    auto* result = new (memory) Interface (device, number, config, now);

    if (NT_SUCCESS (result->createBlock()))
        return result;

    result->destroy();
    return nullptr;
}

void Interface::destroy()
{
    stop();
    answerKept();

    if (block != nullptr)
        ZwUnmapViewOfSection (NtCurrentProcess(), block);

    if (section != nullptr)
        ZwClose (section);

    RtlFreeUnicodeString (&link);
    ExFreePool (this);
}

NTSTATUS Interface::createBlock()
{
    LARGE_INTEGER size;
    size.QuadPart = sizeof (StatisticsBlock);
    auto status = ZwCreateSection (&section, SECTION_ALL_ACCESS, nullptr, &size, PAGE_READWRITE, SEC_COMMIT, nullptr);

    if (NT_SUCCESS (status))
        status = mapSection (section, NtCurrentProcess(), PAGE_READWRITE, block);

    if (NT_SUCCESS (status))
        publish();

    return status;
}

void Interface::publish()
{
    const auto statistics = model.getStatistics();
    RtlCopyMemory (block, &statistics, sizeof (statistics));
}

//==============================================================================
NTSTATUS Interface::start()
{
    auto status = IoRegisterDeviceInterface (device, &interfaceClass, nullptr, &link);

    if (NT_SUCCESS (status))
        status = writeRegistryValues();

    if (NT_SUCCESS (status))
        status = IoSetDeviceInterfaceState (&link, TRUE);

    isAnnounced = NT_SUCCESS (status);
    return status;
}

/** Under the name by which the registry knows the link; Wine has no call that opens this key. */
NTSTATUS Interface::writeRegistryValues()
{
    WCHAR key[256] {};
    constexpr const char* guid = DriverProtocol::interfaceClassText;
    _snwprintf (key,
                sizeof (key) / sizeof (WCHAR) - 1,
                L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\%hs"
                L"\\##?#TESTBUS#TAMRIX#%04u#%hs\\#\\Device Parameters",
                guid,
                number,
                guid);
    RtlCreateRegistryKey (RTL_REGISTRY_ABSOLUTE, key);

    const auto write = [&key] (const WCHAR* name, ULONG type, void* data, std::size_t size)
    { return RtlWriteRegistryValue (RTL_REGISTRY_ABSOLUTE, key, name, type, data, static_cast<ULONG> (size)); };

    auto capabilities = model.getCapabilities();
    const auto status = write (L"hwinfo_caps", REG_BINARY, &capabilities, sizeof (capabilities));

    // The device's name is 8-bit text, which the registry keeps as 16-bit text.
    WCHAR name[sizeof (Simulation::DeviceConfig::name)] {};
    ULONG size = 0;
    RtlUTF8ToUnicodeN (name,
                       sizeof (name),
                       &size,
                       getConfig().name,
                       static_cast<ULONG> (std::strlen (getConfig().name)));
    return NT_SUCCESS (status) ? write (L"unique_name", REG_SZ, name, size + sizeof (WCHAR)) : status;
}

void Interface::stop()
{
    isGone = true;
    takeViews (nullptr);

    // Wine takes the link away itself, and tells nobody when there is none.
    setOpening (true);

    if (isAnnounced)
        IoSetDeviceInterfaceState (&link, FALSE);

    isAnnounced = false;
}

void Interface::setOpening (bool canBeOpened)
{
    if (! isAnnounced || isLocked != canBeOpened)
        return;

    WCHAR name[64] {};
    ULONG size = 0;
    UNICODE_STRING target;
    IoGetDeviceProperty (device, DevicePropertyPhysicalDeviceObjectName, sizeof (name), name, &size);
    RtlInitUnicodeString (&target, name);

    isLocked = ! canBeOpened;
    isLocked ? IoDeleteSymbolicLink (&link) : IoCreateSymbolicLink (&link, &target);
}

//==============================================================================
/** One view for each file; asked again, the same one. Wherever the system likes: it is for the process to see that this
    is where the 32 bits reach that the address travels in.
*/
NTSTATUS Interface::map (FILE_OBJECT* file, HANDLE process, std::uint32_t& address)
{
    View* place = nullptr;

    for (auto& view : views)
        if (view.file == file || (view.file == nullptr && (place == nullptr || place->file == nullptr)))
            place = &view;

    if (place == nullptr)
        return STATUS_INSUFFICIENT_RESOURCES;

    auto status = STATUS_SUCCESS;

    if (place->file == nullptr)
    {
        CLIENT_ID client { process, nullptr };
        OBJECT_ATTRIBUTES attributes;
        InitializeObjectAttributes (&attributes, nullptr, 0, nullptr, nullptr);
        status = ZwOpenProcess (&place->process, PROCESS_ALL_ACCESS, &attributes, &client);

        if (NT_SUCCESS (status))
            status = mapSection (section, place->process, PAGE_READONLY, place->address);

        place->file = NT_SUCCESS (status) ? file : nullptr;
    }

    address = static_cast<std::uint32_t> (reinterpret_cast<ULONG_PTR> (place->address));
    return status;
}

void Interface::takeViews (const FILE_OBJECT* file)
{
    for (auto& view : views)
    {
        if (view.file == nullptr || (file != nullptr && view.file != file))
            continue;

        ZwUnmapViewOfSection (view.process, view.address);
        ZwClose (view.process);
        view = {};
    }
}

//==============================================================================
void Interface::advance (std::int64_t now)
{
    model.advance (now);
    publish();
}

bool Interface::isIn (Fault fault, RequestKind kind)
{
    auto& count = faults[static_cast<std::size_t> (fault)][static_cast<std::size_t> (kind)];
    return count > 0 && count-- > 0;
}

NTSTATUS Interface::handle (IRP* irp, std::int64_t now, DRIVER_CANCEL* cancel)
{
    const auto kind = identify (irp);
    ++received[static_cast<std::size_t> (kind)];
    advance (now);

    for (const auto fault : { Fault::hang, Fault::hold })
        if (isIn (fault, kind))
            return keep (irp, fault == Fault::hang ? cancel : nullptr);

    // Nobody else is answered meanwhile: the system hands requests over one by one.
    if (slownessMs > 0)
    {
        constexpr std::int64_t unitsPerMs = 10'000;
        LARGE_INTEGER delay;
        delay.QuadPart = -unitsPerMs * slownessMs;
        KeDelayExecutionThread (KernelMode, FALSE, &delay);
    }

    return answer (irp, PsGetCurrentProcessId());
}

NTSTATUS Interface::keep (IRP* irp, DRIVER_CANCEL* cancel)
{
    for (auto& place : kept)
    {
        if (place.irp != nullptr)
            continue;

        place = { irp, PsGetCurrentProcessId(), cancel != nullptr };
        IoMarkIrpPending (irp);
        IoSetCancelRoutine (irp, cancel);
        return STATUS_PENDING;
    }

    return complete (irp, STATUS_INSUFFICIENT_RESOURCES);
}

void Interface::forget (const IRP* irp)
{
    for (auto& place : kept)
        if (place.irp == irp)
            place = {};
}

/** Leaves out what is being cancelled. */
void Interface::answerKept()
{
    for (auto& place : kept)
    {
        const auto [irp, process, canBeCancelled] = place;
        place = {};

        if (irp != nullptr && (! canBeCancelled || IoSetCancelRoutine (irp, nullptr) != nullptr))
            answer (irp, process);
    }
}

void Interface::resume()
{
    for (const auto fault : { Fault::hang, Fault::hold })
        for (auto& count : faults[static_cast<std::size_t> (fault)])
            count = 0;

    answerKept();
}

NTSTATUS Interface::answer (IRP* irp, HANDLE process)
{
    ULONG size = 0;
    const auto status = answer (irp, process, size);
    return complete (irp, status, size);
}

/** Writes the answer over the request, its length to size. */
NTSTATUS Interface::answer (IRP* irp, HANDLE process, ULONG& size)
{
    const auto& request = *IoGetCurrentIrpStackLocation (irp);
    const auto& sizes = request.Parameters.DeviceIoControl;
    auto* buffer = irp->AssociatedIrp.SystemBuffer;
    const auto kind = identify (irp);

    if (isGone)
        return STATUS_DEVICE_NOT_CONNECTED;

    if (isIn (Fault::fail, kind))
        return STATUS_UNSUCCESSFUL;

    if (isIn (Fault::warn, kind))
    {
        constexpr int meaningless = 0x3C;
        size = sizes.OutputBufferLength;
        RtlFillMemory (buffer, size, meaningless);
        return STATUS_BUFFER_OVERFLOW;
    }

    const auto reply =
        model.handle (sizes.IoControlCode, buffer, sizes.InputBufferLength, buffer, sizes.OutputBufferLength);
    publish();

    if (reply.mapsStatistics)
        if (const auto status =
                map (request.FileObject, process, static_cast<DriverProtocol::CommandEnvelope*> (buffer)->words[0]);
            ! NT_SUCCESS (status))
            return status;

    size = static_cast<ULONG> (reply.outputSize);
    return statusOf (reply.error);
}

void Interface::describe (Answer& answer) const
{
    ULONG_PTR numViews = 0, highestView = 0, numKept = 0;

    for (const auto& view : views)
    {
        const auto address = reinterpret_cast<ULONG_PTR> (view.address);
        highestView = address > highestView ? address : highestView;
        numViews += view.file != nullptr ? 1 : 0;
    }

    for (const auto& place : kept)
        numKept += place.irp != nullptr ? 1 : 0;

    // As the system makes the path of what the bus says.
    answer.add (" %s path=\\\\?\\testbus#tamrix#%04u#%s", getConfig().name, number, DriverProtocol::interfaceClassText);
    answer.add (" open=%u views=%I64u waiting=%I64u highest-view=%I64u", numOpens, numViews, numKept, highestView);

    for (std::size_t i = 0; i < DriverProtocol::numRequestKinds; ++i)
        answer.add (" %s=%u", DriverProtocol::requestNames[i], received[i]);
}
