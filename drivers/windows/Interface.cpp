#include "drivers/windows/Interface.h"

#include <cstring>
#include <new>

namespace
{
constexpr auto interfaceClass = DriverProtocol::makeInterfaceClass<GUID>();
constexpr std::size_t classNameLength = sizeof (DriverProtocol::interfaceClassText) - 1;
constexpr SIZE_T pageSize = 4096;

NTSTATUS statusOf (std::uint32_t error)
{
    switch (error)
    {
        case Machine::noError:
            return STATUS_SUCCESS;

        case Machine::invalidFunction:
            return STATUS_INVALID_DEVICE_REQUEST;

        case Machine::invalidParameter:
            return STATUS_INVALID_PARAMETER;

        case Machine::insufficientBuffer:
            return STATUS_BUFFER_TOO_SMALL;

        case Machine::deviceNotConnected:
            return STATUS_DEVICE_NOT_CONNECTED;

        default:
            return STATUS_UNSUCCESSFUL;
    }
}
} // namespace

//==============================================================================
Interface* Interface::create (std::uint32_t slot, const Simulation::DeviceConfig& config, std::int64_t now)
{
    void* memory = ExAllocatePool (NonPagedPool, sizeof (Interface));

    if (memory == nullptr)
        return nullptr;

    auto* result = new (memory) Interface (slot, config, now);

    if (NT_SUCCESS (result->createBlock()))
        return result;

    result->destroy();
    return nullptr;
}

Interface::Interface (std::uint32_t slotNumber, const Simulation::DeviceConfig& config, std::int64_t now)
    : slot (slotNumber)
{
    model.reset (config, now);
}

void Interface::destroy()
{
    stop();

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
    size.QuadPart = pageSize;
    auto status = ZwCreateSection (&section, SECTION_ALL_ACCESS, nullptr, &size, PAGE_READWRITE, SEC_COMMIT, nullptr);

    if (! NT_SUCCESS (status))
        return status;

    SIZE_T viewSize = 0;
    status = ZwMapViewOfSection (section,
                                 NtCurrentProcess(),
                                 &block,
                                 0,
                                 0,
                                 nullptr,
                                 &viewSize,
                                 ViewUnmap,
                                 0,
                                 PAGE_READWRITE);

    if (NT_SUCCESS (status))
        publish();
    else
        block = nullptr;

    return status;
}

void Interface::publish()
{
    RtlCopyMemory (block, &model.getStatistics(), sizeof (StatisticsBlock));
}

//==============================================================================
NTSTATUS Interface::start (DEVICE_OBJECT* physicalDevice)
{
    auto status = IoRegisterDeviceInterface (physicalDevice, &interfaceClass, nullptr, &link);

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
    constexpr std::size_t prefixLength = 4; // of the link: "\??\"

    WCHAR storage[512];
    UNICODE_STRING path { 0, sizeof (storage), storage };
    UNICODE_STRING className { classNameLength * sizeof (WCHAR),
                               classNameLength * sizeof (WCHAR),
                               link.Buffer + link.Length / sizeof (WCHAR) - classNameLength };
    UNICODE_STRING name { static_cast<USHORT> (link.Length - prefixLength * sizeof (WCHAR)),
                          link.MaximumLength,
                          link.Buffer + prefixLength };

    RtlAppendUnicodeToString (&path, L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\");
    RtlAppendUnicodeStringToString (&path, &className);
    RtlAppendUnicodeToString (&path, L"\\##?#");
    RtlAppendUnicodeStringToString (&path, &name);

    if (const auto status = RtlAppendUnicodeToString (&path, L"\\#\\Device Parameters"); ! NT_SUCCESS (status))
        return status;

    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes (&attributes, &path, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
    HANDLE key = nullptr;
    auto status = ZwCreateKey (&key, KEY_ALL_ACCESS, &attributes, 0, nullptr, REG_OPTION_VOLATILE, nullptr);

    if (! NT_SUCCESS (status))
        return status;

    auto capabilities = model.getCapabilities();

    // The device's name is 8-bit text, which the registry keeps as 16-bit text.
    WCHAR deviceName[Simulation::DeviceConfig::maximumNameLength + 1] {};
    ULONG nameSize = 0;
    const auto* text = model.getConfig().name;
    RtlUTF8ToUnicodeN (deviceName, sizeof (deviceName), &nameSize, text, static_cast<ULONG> (std::strlen (text) + 1));

    UNICODE_STRING valueName;
    RtlInitUnicodeString (&valueName, L"hwinfo_caps");
    status = ZwSetValueKey (key, &valueName, 0, REG_BINARY, &capabilities, sizeof (capabilities));

    RtlInitUnicodeString (&valueName, L"unique_name");

    if (NT_SUCCESS (status))
        status = ZwSetValueKey (key, &valueName, 0, REG_SZ, deviceName, nameSize);

    ZwClose (key);
    return status;
}

void Interface::stop()
{
    isGone = true;
    takeViews();

    if (isAnnounced)
        IoSetDeviceInterfaceState (&link, FALSE);

    isAnnounced = false;
}

//==============================================================================
/** One view for each file; asked again, the same one. Wherever the system likes: it is for the process to see that this
    is where the 32 bits reach that the address travels in.
*/
NTSTATUS Interface::map (FILE_OBJECT* file, HANDLE process, std::uint32_t& address)
{
    View* free = nullptr;

    for (auto& view : views)
    {
        if (view.file == nullptr)
            free = &view;

        if (view.file == file)
        {
            address = static_cast<std::uint32_t> (reinterpret_cast<ULONG_PTR> (view.address));
            return STATUS_SUCCESS;
        }
    }

    if (free == nullptr)
        return STATUS_INSUFFICIENT_RESOURCES;

    CLIENT_ID client { process, nullptr };
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes (&attributes, nullptr, 0, nullptr, nullptr);
    View view { file, nullptr, nullptr };
    auto status = ZwOpenProcess (&view.process, PROCESS_ALL_ACCESS, &attributes, &client);

    if (! NT_SUCCESS (status))
        return status;

    SIZE_T size = 0;
    status =
        ZwMapViewOfSection (section, view.process, &view.address, 0, 0, nullptr, &size, ViewUnmap, 0, PAGE_READONLY);

    if (! NT_SUCCESS (status))
    {
        ZwClose (view.process);
        return status;
    }

    *free = view;
    address = static_cast<std::uint32_t> (reinterpret_cast<ULONG_PTR> (view.address));
    return STATUS_SUCCESS;
}

void Interface::take (View& view)
{
    if (view.file == nullptr)
        return;

    ZwUnmapViewOfSection (view.process, view.address);
    ZwClose (view.process);
    view = {};
}

void Interface::takeViews()
{
    for (auto& view : views)
        take (view);
}

void Interface::closed (FILE_OBJECT* file)
{
    if (owner == file)
        owner = nullptr;

    for (auto& view : views)
        if (view.file == file)
            take (view);
}

//==============================================================================
void Interface::advance (std::int64_t now)
{
    model.advance (now);
    publish();
}

Interface::Treatment Interface::receive (ULONG controlCode, const void* input, ULONG size)
{
    const auto kind = DriverProtocol::identifyRequest (controlCode, input, size);
    ++received[static_cast<std::uint32_t> (kind)];

    const auto use = [] (std::uint32_t& count) { return count > 0 && count-- > 0; };
    auto& trouble = troubleWith (kind);
    return use (trouble.hangs) ? Treatment::hang : use (trouble.holds) ? Treatment::hold : Treatment::answer;
}

void Interface::endHanging()
{
    for (auto& trouble : troubles)
        trouble.hangs = trouble.holds = 0;
}

NTSTATUS Interface::handle (FILE_OBJECT* file,
                            HANDLE process,
                            ULONG controlCode,
                            void* buffer,
                            ULONG inputSize,
                            ULONG outputSize,
                            ULONG& size)
{
    size = 0;

    if (isGone)
        return STATUS_DEVICE_NOT_CONNECTED;

    if (isExclusive && file != owner)
        return STATUS_SHARING_VIOLATION;

    auto& trouble = troubleWith (DriverProtocol::identifyRequest (controlCode, buffer, inputSize));

    if (trouble.failures > 0)
    {
        --trouble.failures;
        return STATUS_UNSUCCESSFUL;
    }

    if (trouble.warnings > 0)
    {
        constexpr int madeUp = 0x3C;
        --trouble.warnings;
        RtlFillMemory (buffer, outputSize, madeUp);
        size = outputSize;
        return STATUS_BUFFER_OVERFLOW;
    }

    const auto reply = model.handle (controlCode, buffer, inputSize, buffer, outputSize);
    publish();

    if (reply.mapsStatistics)
        if (const auto status = map (file, process, static_cast<DriverProtocol::CommandEnvelope*> (buffer)->words[0]);
            ! NT_SUCCESS (status))
            return status;

    size = static_cast<ULONG> (reply.outputSize);
    return statusOf (reply.error);
}

void Interface::describe (TestBus::State& state) const
{
    state.isPresent = 1;
    state.numOpens = numOpens;

    for (const auto& view : views)
    {
        if (view.file == nullptr)
            continue;

        const auto address = reinterpret_cast<ULONG_PTR> (view.address);
        state.highestView = state.highestView < address ? address : state.highestView;
        ++state.numViews;
    }

    RtlCopyMemory (state.received, received, sizeof (received));
}
