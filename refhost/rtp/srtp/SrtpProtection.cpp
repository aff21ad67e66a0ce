#include "refhost/rtp/srtp/SrtpProtection.h"

#include <algorithm>
#include <array>
#include <utility>

#include "refhost/rtp/RtpHeaderPatch.h"

namespace refhost
{
namespace
{

/// The longest packet that interleaved framing carries.
constexpr std::size_t maxPacket = 65535;

/// Where this thread seals and opens packets: libsrtp2 wants them at aligned addresses.
std::uint8_t* scratch()
{
    alignas(16) thread_local std::array<std::uint8_t, maxPacket + SrtpSealer::maxTrailer> room;
    return room.data();
}

std::size_t sealedSize(const AccessUnit& unit, std::size_t firstPacket)
{
    std::size_t bytes = 0;
    for (std::size_t i = firstPacket; i < unit.packets.size(); ++i)
    {
        // No suite's tag is longer than 16 bytes.
        bytes += AccessUnit::framingSize + unit.packets[i].size + 16;
    }
    return bytes + SrtpSealer::maxTrailer;
}

}  // namespace

SrtpProtection::SrtpProtection(const SrtpKey& own, const SrtpKey& client) : sealer_(own), clientKey_(client)
{
}

std::optional<std::uint64_t> SrtpProtection::sent(std::uint32_t ssrc)
{
    const MutexLock guard(sendMutex_);
    return sealer_.ssrc() == ssrc ? std::optional(sealer_.index()) : std::nullopt;
}

AccessUnitPtr SrtpProtection::seal(const AccessUnit& unit, std::size_t firstPacket,
                                   const RtpHeaderFields& header)
{
    auto sealed = std::make_shared<AccessUnit>();
    sealed->bytes.reserve(sealedSize(unit, firstPacket));
    sealed->packets.reserve(unit.packets.size() - firstPacket);
    sealed->rtpTimestamp = unit.rtpTimestamp;
    sealed->captureTime = unit.captureTime;
    sealed->keyFrame = unit.keyFrame;
    std::uint16_t sequence = header.sequence;
    const MutexLock guard(sendMutex_);
    for (std::size_t i = firstPacket; i < unit.packets.size(); ++i)
    {
        const std::uint8_t* const packet = unit.bytes.data() + unit.packets[i].offset;
        std::size_t size = unit.packets[i].size;
        if (size > maxPacket)
        {
            return nullptr;
        }
        // Sealed where it stays.
        sealed->append(packet, size);
        AccessUnit::Packet& copy = sealed->packets.back();
        sealed->bytes.resize(sealed->bytes.size() + SrtpSealer::maxTrailer);
        std::uint8_t* const bytes = sealed->bytes.data() + copy.offset;
        patchRtpHeader(bytes, header, sequence++);
        if (!sealer_.seal(bytes, size))
        {
            return nullptr;
        }
        sealed->payloadBytes += static_cast<std::uint32_t>(size) - copy.size;
        copy.size = static_cast<std::uint32_t>(size);
        sealed->bytes.resize(copy.offset + size);
    }
    return sealed;
}

bool SrtpProtection::sealRtcp(std::vector<std::uint8_t>& packet)
{
    std::size_t size = packet.size();
    if (size > maxPacket)
    {
        return false;
    }
    std::uint8_t* const room = scratch();
    std::copy(packet.begin(), packet.end(), room);
    const MutexLock guard(sendMutex_);
    if (!sealer_.sealRtcp(room, size))
    {
        return false;
    }
    packet.assign(room, room + size);
    return true;
}

bool SrtpProtection::openRtp(std::uint8_t* packet, std::size_t& size)
{
    return open(&SrtpOpener::open, packet, size);
}

bool SrtpProtection::openRtcp(std::uint8_t* packet, std::size_t& size)
{
    return open(&SrtpOpener::openRtcp, packet, size);
}

bool SrtpProtection::open(Open operation, std::uint8_t* packet, std::size_t& size)
{
    if (size > maxPacket)
    {
        return false;
    }
    std::uint8_t* const room = scratch();
    std::copy(packet, packet + size, room);
    const MutexLock guard(receiveMutex_);
    if (opener_ == nullptr)
    {
        opener_ = SrtpOpener::make(clientKey_);
    }
    if (opener_ == nullptr || !(*opener_.*operation)(room, size))
    {
        return false;
    }
    std::copy(room, room + size, packet);
    return true;
}

}  // namespace refhost
