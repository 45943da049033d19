#pragma once

#include <cstddef>
#include <cstdint>

/** The driver's protocol: the class of its device interfaces, control codes, command and transaction codes, and the
    records that travel in their buffers or are kept in an interface's registry key.

    Everything is little-endian. The records come from the driver, in the buffer of an I/O control request;
    they are copied into and out of these structs, never cast. Nothing here needs a library: the simulator's
    model, which also runs inside a kernel driver, includes this header.
*/
namespace DriverProtocol
{

//==============================================================================
/** The device-interface class of the driver, as text. */
inline constexpr char interfaceClassText[] = "{7be5a0c4-2f1d-4d0e-9a6b-51d7c308e294}";

/** The same class as the system's own kind of GUID. */
template <typename Guid>
constexpr Guid makeInterfaceClass()
{
    const auto parse = [] (std::size_t position, std::size_t numDigits)
    {
        std::uint32_t number = 0;

        for (auto i = position; i < position + numDigits; ++i)
        {
            const auto digit = interfaceClassText[i];
            number = number * 16 + static_cast<std::uint32_t> (digit <= '9' ? digit - '0' : digit - 'a' + 10);
        }

        return number;
    };

    Guid guid {};
    guid.Data1 = parse (1, 8);
    guid.Data2 = static_cast<std::uint16_t> (parse (10, 4));
    guid.Data3 = static_cast<std::uint16_t> (parse (15, 4));

    // The third hyphen comes after the first two bytes of the rest.
    for (std::size_t i = 0; i < 8; ++i)
        guid.Data4[i] = static_cast<std::uint8_t> (parse ((i < 2 ? 20 : 21) + 2 * i, 2));

    return guid;
}

//==============================================================================
/** Values of an interface's registry key: the CapabilityRecord, and the device's name as text. */
inline constexpr char capabilitiesValue[] = "hwinfo_caps";
inline constexpr char nameValue[] = "unique_name";

//==============================================================================
/** Carries a CommandEnvelope both ways. */
inline constexpr std::uint32_t IOCTL_DEVICE_COMMAND = 0x1D2008;

/** Carries a TransactionBlock. */
inline constexpr std::uint32_t IOCTL_DEVICE_TRANSACTION = 0x1D2004;

/** Command codes of IOCTL_DEVICE_COMMAND. */
enum CommandCode : std::uint32_t
{
    ReadStreamStatus = 3,
    MapStatistics = 7,
    ResetStatistics = 8,
    ReadEventEntry = 0x13
};

/** Request codes of IOCTL_DEVICE_TRANSACTION. */
enum TransactionCode : std::uint32_t
{
    ProbeDevice = 1,
    AccessFirmwareCounters = 4 /**< Reads the counters, or clears them when parameter 0 is all ones. */
};

/** Value of parameter 0 of AccessFirmwareCounters. */
enum FirmwareCounterAccess : std::uint32_t
{
    ReadFirmwareCounters = 0,
    ClearFirmwareCounters = 0xFFFFFFFF
};

//==============================================================================
#pragma pack(push, 1)

/** Buffer of IOCTL_DEVICE_COMMAND, input and output alike. */
struct CommandEnvelope
{
    static constexpr std::size_t numWords = 13;

    std::uint32_t reserved[2];
    std::uint32_t code;
    std::uint32_t words[numWords]; /**< Request: the command's parameter, if any. Reply: its result. */
};

/** Buffer of IOCTL_DEVICE_TRANSACTION. */
struct TransactionBlock
{
    static constexpr std::size_t numWords = 16;

    /** Bytes up to and without the parameters: all that ProbeDevice sends. */
    static constexpr std::size_t headerSize = 28;

    std::uint32_t status;         /**< Reply: 0, or a status of the driver's. */
    std::uint32_t length;         /**< Request: 32-bit words of the message, counted from this word on. */
    std::uint32_t driverWords[2]; /**< The driver's own: what a reply leaves here goes back with the next request. */
    std::uint32_t requestClass;   /**< Always 0. */
    std::uint32_t code;           /**< A TransactionCode. */
    std::uint32_t deviceStatus;   /**< Reply: 0, or a status of the device's. */
    std::uint32_t words[numWords];
};

/** One entry of the driver's event log, as ReadEventEntry delivers it in the words of the envelope. */
struct EventLogEntry
{
    std::int64_t timestamp; /**< Counter value, ticks. */
    std::int64_t frequency; /**< The counter's rate, ticks per second. */
    std::uint32_t type;     /**< Index into the event names, or noSuchEntry. */
    std::uint32_t param;    /**< Its meaning depends on the type; noParameter: none. */
    std::uint8_t unused1;
    std::int8_t auxValue;
    std::uint8_t unused2[6];
};

/** What a device can do and which versions of what run in it; a shorter record reads as 0 behind its end. */
struct CapabilityRecord
{
    static constexpr std::uint32_t dspFlag = 1u << 4;
    static constexpr std::uint32_t fpgaFlag = 1u << 5;

    std::uint32_t flags;
    std::uint32_t vendor; /**< The vendor's 24-bit id in the upper three bytes. */
    std::uint32_t unused1;
    std::uint32_t type;
    std::uint32_t unused2[20];
    std::uint32_t firstProbeCount; /**< Both together: 32-bit words of the probe's reply behind its fixed part. */
    std::uint32_t secondProbeCount;
    std::uint32_t unused3[14];
    std::uint32_t dspVersion; /**< A version has one part in a byte from the top on, the fourth in a half byte. */
    std::uint32_t armVersion;
    std::uint32_t unused4[2];
    std::uint32_t fpgaVersion;
    std::uint32_t unused5[20];
};

#pragma pack(pop)

/** Fixed part of the probe's reply, bytes. */
inline constexpr std::size_t probeReplyFixedSize = 64;

/** EventLogEntry::type of an index at which the log holds no entry. */
inline constexpr std::uint32_t noSuchEntry = 0xFFFFFFFF;

/** EventLogEntry::param of an event that has none. */
inline constexpr std::uint32_t noParameter = 0xFFFFFFFF;

/** Entries of a log that are read at most. */
inline constexpr std::uint32_t MaxEventsPerDevice = 16384;

/** TransactionBlock::length of a message that ends with the header, and of one with all parameters. */
inline constexpr std::uint32_t headerLength = 6;
inline constexpr std::uint32_t fullLength = 22;

/** Result words of ReadStreamStatus (in CommandEnvelope::words). */
inline constexpr std::size_t numStreamStatusWords = 9;
inline constexpr std::size_t sampleRateWord = 2; /**< Hz. */
inline constexpr std::size_t bufferSizeWord = 4; /**< Sample frames. */

/** Result words of ReadFirmwareCounters (in TransactionBlock::words). */
inline constexpr std::size_t overflowsWord = 0;
inline constexpr std::size_t underrunsWord = 1;
inline constexpr std::size_t fifoLevelWord = 4; /**< Up to fullFifo. */
inline constexpr std::size_t unshownWord = 5;   /**< Has a value that is not shown. */
inline constexpr std::size_t syncCountWord = 6;

inline constexpr std::uint32_t fullFifo = 1024;

//==============================================================================
static_assert (sizeof (CommandEnvelope) == 64);
static_assert (offsetof (CommandEnvelope, reserved) == 0);
static_assert (offsetof (CommandEnvelope, code) == 8);
static_assert (offsetof (CommandEnvelope, words) == 12);

static_assert (sizeof (TransactionBlock) == 92);
static_assert (offsetof (TransactionBlock, status) == 0);
static_assert (offsetof (TransactionBlock, length) == 4);
static_assert (offsetof (TransactionBlock, driverWords) == 8);
static_assert (offsetof (TransactionBlock, requestClass) == 16);
static_assert (offsetof (TransactionBlock, code) == 20);
static_assert (offsetof (TransactionBlock, deviceStatus) == 24);
static_assert (offsetof (TransactionBlock, words) == TransactionBlock::headerSize);

static_assert (sizeof (EventLogEntry) == 32);
static_assert (offsetof (EventLogEntry, timestamp) == 0);
static_assert (offsetof (EventLogEntry, frequency) == 8);
static_assert (offsetof (EventLogEntry, type) == 16);
static_assert (offsetof (EventLogEntry, param) == 20);
static_assert (offsetof (EventLogEntry, unused1) == 24);
static_assert (offsetof (EventLogEntry, auxValue) == 25);
static_assert (offsetof (EventLogEntry, unused2) == 26);

static_assert (sizeof (CapabilityRecord) == 260);
static_assert (offsetof (CapabilityRecord, flags) == 0);
static_assert (offsetof (CapabilityRecord, vendor) == 4);
static_assert (offsetof (CapabilityRecord, type) == 12);
static_assert (offsetof (CapabilityRecord, firstProbeCount) == 96);
static_assert (offsetof (CapabilityRecord, secondProbeCount) == 100);
static_assert (offsetof (CapabilityRecord, dspVersion) == 160);
static_assert (offsetof (CapabilityRecord, armVersion) == 164);
static_assert (offsetof (CapabilityRecord, fpgaVersion) == 176);

} // namespace DriverProtocol
