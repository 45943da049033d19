#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/** A device's capability record: the raw bytes of the registry value "hwinfo_caps", little-endian.

    Written by the driver and fixed from the device's construction on, so it is read without a lock. A record
    that is shorter than its fields reads as 0 behind its end.
*/
class HwInfoCaps
{
public:
    static constexpr std::size_t maximumSize = 260;

    /** Where the registry's bytes go. */
    std::array<std::uint8_t, maximumSize>& getBytes() noexcept { return bytes; }

    bool hasDsp() const noexcept { return (wordAt (flagsOffset) & dspFlag) != 0; }
    bool hasFpga() const noexcept { return (wordAt (flagsOffset) & fpgaFlag) != 0; }

    /** 24 bits. */
    std::uint32_t getVendorId() const noexcept { return wordAt (vendorOffset) >> 8; }
    std::uint32_t getTypeId() const noexcept { return wordAt (typeOffset); }

    /** Packed versions, see formatFirmwareVersion. */
    std::uint32_t getDspVersion() const noexcept { return wordAt (dspVersionOffset); }
    std::uint32_t getArmVersion() const noexcept { return wordAt (armVersionOffset); }
    std::uint32_t getFpgaVersion() const noexcept { return wordAt (fpgaVersionOffset); }

    /** 32-bit words that the probe's reply carries behind its fixed part, as the record claims. */
    std::uint64_t getNumProbeWords() const noexcept
    {
        return std::uint64_t { wordAt (firstCountOffset) } + wordAt (secondCountOffset);
    }

private:
    static constexpr std::size_t flagsOffset = 0;
    static constexpr std::size_t vendorOffset = 4;
    static constexpr std::size_t typeOffset = 12;
    static constexpr std::size_t firstCountOffset = 96;
    static constexpr std::size_t secondCountOffset = 100;
    static constexpr std::size_t dspVersionOffset = 160;
    static constexpr std::size_t armVersionOffset = 164;
    static constexpr std::size_t fpgaVersionOffset = 176;

    static constexpr std::uint32_t dspFlag = 1u << 4;
    static constexpr std::uint32_t fpgaFlag = 1u << 5;

    std::uint32_t wordAt (std::size_t offset) const noexcept
    {
        std::uint32_t word = 0;

        for (std::size_t i = 4; i-- > 0;)
            word = word << 8 | bytes[offset + i];

        return word;
    }

    std::array<std::uint8_t, maximumSize> bytes {};
};
