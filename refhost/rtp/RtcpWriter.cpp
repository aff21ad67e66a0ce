#include "refhost/rtp/RtcpWriter.h"

#include <cstring>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

constexpr std::uint32_t header(unsigned count, unsigned type, unsigned words)
{
    return 2U << 30U | count << 24U | type << 16U | (words - 1U);
}

}  // namespace

RtcpWriter::Name RtcpWriter::randomName()
{
    static constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Name name;
    fillRandom(name.data(), name.size());
    for (char& letter : name)
    {
        letter = letters[static_cast<unsigned char>(letter) % 64U];
    }
    return name;
}

RtcpWriter::RtcpWriter(const SenderReport& report, const Name& name, bool bye)
{
    const NtpTime ntp(report.wall);
    put32(header(0, 200, 7));
    put32(report.ssrc);
    put32(ntp.wholeSeconds());
    put32(ntp.fraction());
    put32(report.rtpTimestamp);
    put32(report.packets);
    put32(report.octets);
    putCnameAndBye(report.ssrc, name, bye);
}

RtcpWriter RtcpWriter::ofReceiver(const ReceiverReport& report, const Name& name, bool bye)
{
    RtcpWriter writer;
    writer.put32(report.hasBlock ? header(1, 201, 8) : header(0, 201, 2));
    writer.put32(report.ssrc);
    if (report.hasBlock)
    {
        const ReceptionReport& block = report.reception;
        writer.put32(report.source);
        writer.put32(static_cast<std::uint32_t>(block.fractionLost) << 24U |
                     (static_cast<std::uint32_t>(block.cumulativeLost) & 0xffffffU));
        writer.put32(block.highestSequence);
        writer.put32(block.jitter);
        writer.put32(block.lastReport);
        writer.put32(block.delaySinceReport);
    }
    writer.putCnameAndBye(report.ssrc, name, bye);
    return writer;
}

void RtcpWriter::putCnameAndBye(std::uint32_t ssrc, const Name& name, bool bye)
{
    // One chunk: SSRC, CNAME item (type 1), and the null byte that ends the list, padded to a whole word.
    constexpr std::size_t itemBytes = 2 + nameSize + 1;
    constexpr unsigned words = 2 + (itemBytes + 3) / 4;
    put32(header(1, 202, words));
    put32(ssrc);
    const std::size_t end = size_ + std::size_t{words - 2} * 4;
    bytes_[size_++] = 1;
    bytes_[size_++] = nameSize;
    std::memcpy(&bytes_[size_], name.data(), nameSize);
    size_ += nameSize;
    while (size_ < end)
    {
        bytes_[size_++] = 0;
    }

    if (bye)
    {
        put32(header(1, 203, 2));
        put32(ssrc);
    }
}

void RtcpWriter::put32(std::uint32_t value)
{
    writeBig32(&bytes_[size_], value);
    size_ += sizeof(value);
}

}  // namespace refhost
