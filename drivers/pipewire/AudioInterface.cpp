#include "drivers/pipewire/AudioInterface.h"

#include "drivers/machine/CheckedRequest.h"
#include "protocol/MachineLayout.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace PipeWire
{

using namespace Machine;
using DriverProtocol::RequestKind;

namespace
{
/* Leaves out a character that is cut in two. */
std::string cutToFit (std::string name)
{
    constexpr std::size_t maximumLength = 63;

    if (name.size() <= maximumLength)
        return name;

    auto length = maximumLength;

    while (length > 0 && (static_cast<unsigned char> (name[length]) & 0xC0) == 0x80)
        --length;

    name.resize (length);
    return name;
}

InterfaceSetup describe (const AudioInterface::Description& description, const std::string& machineFolder)
{
    DriverProtocol::CapabilityRecord record {};
    record.vendor = description.vendor << 8;
    record.type = description.type;

    InterfaceSetup setup;
    setup.machineFolder = machineFolder;
    setup.name = description.folderName;
    setup.describeDevice (record, cutToFit (description.name));
    return setup;
}
} // namespace

AudioInterface::AudioInterface (const Description& description, const std::string& machineFolder)
    : name (description.name),
      path (description.path),
      figures (description.number),
      server (std::make_unique<InterfaceServer> (describe (description, machineFolder), *this))
{
    publish();
}

void AudioInterface::publish()
{
    const auto statistics = figures.getStatistics();
    server->getSection().write (&statistics, sizeof (statistics));
}

void AudioInterface::readEvent (std::uint64_t connection,
                                std::uint32_t index,
                                DriverProtocol::CommandEnvelope& envelope)
{
    const auto entry = readers[connection].read (figures.getEvents(), index, MachineLayout::ticksPerSecond);

    // A reader stops at the first index without an entry.
    if (entry.type == DriverProtocol::noSuchEntry)
        readers.erase (connection);

    std::memcpy (envelope.words, &entry, sizeof (entry));
}

Reply AudioInterface::handle (const Request& request)
{
    auto checked = checkRequest (request.controlCode, request.input.data(), request.input.size(), request.outputSize);

    if (checked.error != noError)
        return Reply::failure (checked.error);

    switch (checked.kind)
    {
        case RequestKind::streamStatus:
            checked.envelope.words[DriverProtocol::sampleRateWord] = figures.getSampleRate();
            checked.envelope.words[DriverProtocol::bufferSizeWord] = figures.getBufferSize();
            break;

        case RequestKind::resetStatistics:
            figures.resetStatistics();
            publish();
            break;

        case RequestKind::eventEntry:
            readEvent (request.connection, checked.eventIndex, checked.envelope);
            break;

        case RequestKind::clearCounters:
            figures.clearCounters();
            [[fallthrough]];

        case RequestKind::readCounters:
        {
            const auto& counters = figures.getCounters();
            checked.block.words[DriverProtocol::overflowsWord] = counters.overflows;
            checked.block.words[DriverProtocol::underrunsWord] = counters.underruns;
            checked.block.words[DriverProtocol::fifoLevelWord] = counters.fifoLevel;
            checked.block.words[DriverProtocol::syncCountWord] = counters.syncCount;
            break;
        }

        case RequestKind::mapStatistics:
        case RequestKind::probe:
        case RequestKind::other:
            break;
    }

    std::array<std::uint8_t, sizeof (DriverProtocol::TransactionBlock)> output;
    const auto capacity = std::min<std::size_t> (request.outputSize, output.size());

    auto reply = Reply::success (
        std::span (output).first (writeReply (checked, output.data(), capacity, DriverProtocol::probeReplyFixedSize)));
    reply.handsOutSection = checked.kind == RequestKind::mapStatistics;
    return reply;
}

} // namespace PipeWire
