#include "refhost/rtp/RtcpReader.h"

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr unsigned senderReport = 200;
constexpr unsigned receiverReport = 201;
constexpr unsigned bye = 203;
constexpr std::size_t headerSize = 4;
constexpr std::size_t blockSize = 24;

ReceptionReport readBlock(const std::uint8_t* at)
{
    ReceptionReport report;
    report.fractionLost = at[4];
    const std::uint32_t lost = readBig32(at + 4) & 0xffffffU;
    report.cumulativeLost = static_cast<std::int32_t>(lost) - ((lost & 0x800000U) != 0 ? 0x1000000 : 0);
    report.highestSequence = readBig32(at + 8);
    report.jitter = readBig32(at + 12);
    report.lastReport = readBig32(at + 16);
    report.delaySinceReport = readBig32(at + 20);
    return report;
}

/// Reads the blocks of the SR or RR whose body starts at `at`. \returns false when they do not fit
bool readBlocks(const std::uint8_t* at, std::size_t size, bool sender, unsigned count, std::uint32_t ssrc,
                RtcpFindings& findings)
{
    const std::size_t before = sender ? 24 : 4;
    if (size < before + count * blockSize)
    {
        return false;
    }
    if (sender && !findings.sent)
    {
        findings.sent = true;
        findings.sentNtp = readBig32(at + 6);
    }
    for (unsigned i = 0; i < count; ++i)
    {
        const std::uint8_t* block = at + before + i * blockSize;
        if (readBig32(block) == ssrc)
        {
            findings.reported = true;
            findings.report = readBlock(block);
        }
    }
    return true;
}

}  // namespace

bool RtcpReader::read(const std::uint8_t* data, std::size_t size, std::uint32_t ssrc, RtcpFindings& findings)
{
    RtcpFindings found;
    std::size_t at = 0;
    do
    {
        if (size - at < headerSize || data[at] >> 6U != 2)
        {
            return false;
        }
        const unsigned type = data[at + 1];
        const unsigned count = data[at] & 0x1fU;
        const bool padded = (data[at] & 0x20U) != 0;
        const std::size_t length = std::size_t{readBig16(data + at + 2)} * 4 + headerSize;
        const bool report = type == senderReport || type == receiverReport;
        if (size - at < length || (at == 0 && (!report || padded)) || (padded && at + length != size))
        {
            return false;
        }
        if (at == 0 && length >= headerSize + 4)
        {
            found.reporter = readBig32(data + headerSize);
        }
        if (report && !readBlocks(data + at + headerSize, length - headerSize, type == senderReport, count,
                                  ssrc, found))
        {
            return false;
        }
        found.bye = found.bye || type == bye;
        at += length;
    } while (at < size);
    findings = found;
    return true;
}

}  // namespace refhost
