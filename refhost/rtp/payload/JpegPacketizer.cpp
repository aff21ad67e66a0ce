#include "refhost/rtp/payload/JpegPacketizer.h"

#include <algorithm>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/payload/JpegHeader.h"
#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{
namespace
{

constexpr std::size_t mainHeaderSize = 8;
constexpr std::size_t shortHeaderSize = 4;
constexpr std::size_t quantizersSize = 128;
constexpr std::uint8_t eachFrame = 255;  // quality whose quantizers are in band
constexpr std::uint8_t restarts = 64;
constexpr std::size_t maxScanSize = 0xffffff;  // of an offset

/// The headers of a frame's packets; the offset is written into each.
std::vector<std::uint8_t> headersOf(const JpegHeader& jpeg)
{
    const bool hasRestarts = jpeg.restartInterval > 0;
    std::vector<std::uint8_t> headers(mainHeaderSize);
    headers[4] = static_cast<std::uint8_t>((jpeg.halfHeight ? 1 : 0) | (hasRestarts ? restarts : 0));
    headers[5] = eachFrame;
    headers[6] = static_cast<std::uint8_t>(jpeg.width / 8);
    headers[7] = static_cast<std::uint8_t>(jpeg.height / 8);
    if (hasRestarts)
    {
        // Packets do not keep to restart intervals (section 3.1.7).
        headers.insert(headers.end(), {0, 0, 0xff, 0xff});
        writeBig16(headers.data() + mainHeaderSize, jpeg.restartInterval);
    }
    return headers;
}

}  // namespace

JpegPacketizer::JpegPacketizer(std::size_t payloadSize)
    : Packetizer(Codec::mjpeg),
      payloadSize_(std::max(payloadSize, mainHeaderSize + 2 * shortHeaderSize + quantizersSize + 1))
{
}

const char* JpegPacketizer::packUnit(const EncodedUnit& unit, std::uint32_t rtpTimestamp,
                                     std::vector<std::shared_ptr<AccessUnit>>& out)
{
    JpegHeader jpeg;
    ByteSpan scan;
    const char* const refused = JpegHeader::read(unit.bytes, jpeg, scan);
    if (refused != nullptr)
    {
        return refused;
    }
    if (scan.size > maxScanSize)
    {
        return "a JPEG of more than 16 MiB: RTP cannot carry it";
    }
    std::vector<std::uint8_t> headers = headersOf(jpeg);
    const std::size_t otherSize = headers.size();
    headers.insert(headers.end(), {0, 0, 0, quantizersSize});
    headers.insert(headers.end(), jpeg.quantizers.begin(), jpeg.quantizers.end());
    const std::size_t packets = scan.size / (payloadSize_ - otherSize) + 2;
    PacketRun run;
    run.expect(scan.size + headers.size() +
                   packets * (otherSize + AccessUnit::framingSize + AccessUnit::rtpHeaderSize),
               packets);
    for (std::size_t at = 0; at < scan.size;)
    {
        writeBig32(headers.data(), static_cast<std::uint32_t>(at));
        const std::size_t front = at == 0 ? headers.size() : otherSize;
        const std::size_t size = std::min(payloadSize_ - front, scan.size - at);
        run.add({headers.data(), front}, scan.from(at).first(size));
        at += size;
    }
    out.push_back(run.finish(rtpTimestamp, true));
    out.back()->captureTime = unit.captureTime;
    out.back()->keyFrame = true;
    return nullptr;
}

}  // namespace refhost
