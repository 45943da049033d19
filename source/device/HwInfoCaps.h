#pragma once

#include "protocol/DriverProtocol.h"

/** A device's capability record, from its interface's registry key.

    Written by the driver and fixed from the device's construction on, so it is read without a lock.
*/
struct HwInfoCaps
{
    bool hasDsp() const noexcept { return (record.flags & record.dspFlag) != 0; }
    bool hasFpga() const noexcept { return (record.flags & record.fpgaFlag) != 0; }

    /** 24 bits. */
    std::uint32_t getVendorId() const noexcept { return record.vendor >> 8; }
    std::uint32_t getTypeId() const noexcept { return record.type; }

    /** Packed versions, see formatFirmwareVersion. */
    std::uint32_t getDspVersion() const noexcept { return record.dspVersion; }
    std::uint32_t getArmVersion() const noexcept { return record.armVersion; }
    std::uint32_t getFpgaVersion() const noexcept { return record.fpgaVersion; }

    /** 32-bit words that the probe's reply carries behind its fixed part, as the record claims. */
    std::uint64_t getNumProbeWords() const noexcept
    {
        return std::uint64_t { record.firstProbeCount } + record.secondProbeCount;
    }

    DriverProtocol::CapabilityRecord record {};
};
