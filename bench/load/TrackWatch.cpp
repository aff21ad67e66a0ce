#include "bench/load/TrackWatch.h"

#include <utility>

#include "bench/load/Poller.h"

namespace rtspload
{
namespace
{

constexpr std::size_t rtpHeaderSize = 12;
constexpr std::uint8_t senderReport = 200;
constexpr std::size_t senderReportSize = 28;

std::uint16_t read16(const std::uint8_t* data)
{
    return static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

std::uint32_t read32(const std::uint8_t* data)
{
    return static_cast<std::uint32_t>(read16(data)) << 16 | read16(data + 2);
}

void add(std::string& text, const std::string& fault)
{
    text += text.empty() ? fault : "; " + fault;
}

}  // namespace

void TrackWatch::start(std::string encoding, bool ordered)
{
    *this = TrackWatch();
    encoding_ = std::move(encoding);
    ordered_ = ordered;
}

void TrackWatch::expectSsrc(std::uint32_t ssrc)
{
    expectedSsrc_ = ssrc;
}

void TrackWatch::expectFirst(std::uint16_t sequence, std::optional<std::uint32_t> rtpTime)
{
    expectedSequence_ = sequence;
    expectedRtpTime_ = rtpTime;
}

FrameStart TrackWatch::onRtp(const std::uint8_t* data, std::size_t size)
{
    if (size <= rtpHeaderSize || data[0] >> 6 != 2)
    {
        ++malformed_;
        return FrameStart::unknown;
    }
    const std::uint16_t sequence = read16(data + 2);
    const std::uint32_t ssrc = read32(data + 8);
    if (ssrc != expectedSsrc_.value_or(packets_ == 0 ? ssrc : ssrc_))
    {
        // Nothing of it is judged: its sequence numbers are another source's.
        ++foreignSsrc_;
        return FrameStart::unknown;
    }
    if (packets_ == 0)
    {
        ssrc_ = ssrc;
        firstSequence_ = sequence;
        firstRtpTime_ = read32(data + 4);
    }
    else
    {
        const auto step = static_cast<std::int16_t>(sequence - lastSequence_);
        if (step <= 0)
        {
            ++outOfOrder_;
            lost_ -= lost_ > 0 && step < 0 ? 1 : 0;
            ++packets_;
            return FrameStart::unknown;
        }
        lost_ += static_cast<std::uint64_t>(step - 1);
    }
    lastSequence_ = sequence;
    ++packets_;
    if (encoding_ == "H264" || encoding_ == "H265")
    {
        pace_.onPacket(read32(data + 4), nowNs());
    }

    const std::size_t skip = rtpHeaderSize + std::size_t{4} * (data[0] & 0x0fU);
    if (size <= skip)
    {
        return FrameStart::unknown;
    }
    const FrameStart start = frameStart(encoding_, data + skip, size - skip);
    if (firstFrame_ == FrameStart::unknown)
    {
        firstFrame_ = start;
    }
    return start;
}

void TrackWatch::onRtcp(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        ++badRtcp_;
    }
    while (size > 0)
    {
        const std::size_t length = size < 4 ? 0 : 4 * (read16(data + 2) + 1U);
        if (length == 0 || length > size || data[0] >> 6 != 2)
        {
            ++badRtcp_;
            return;
        }
        if (data[1] == senderReport)
        {
            const bool ours = length >= senderReportSize && (packets_ == 0 || read32(data + 4) == ssrc_);
            ++(ours ? senderReports_ : badRtcp_);
        }
        data += length;
        size -= length;
    }
}

std::string TrackWatch::faults(bool senderReportDue) const
{
    std::string text;
    if (packets_ == 0)
    {
        return "no packet came";
    }
    if ((encoding_ == "H264" || encoding_ == "H265") && firstFrame_ != FrameStart::keyFrame)
    {
        add(text, "does not start on a key frame");
    }
    if (lost_ != 0)
    {
        add(text, std::to_string(lost_) + " packets lost");
    }
    if (outOfOrder_ != 0 && ordered_)
    {
        add(text, std::to_string(outOfOrder_) + " packets out of order");
    }
    if (malformed_ != 0)
    {
        add(text, std::to_string(malformed_) + " packets are no RTP");
    }
    if (foreignSsrc_ != 0)
    {
        add(text, std::to_string(foreignSsrc_) + " packets with another SSRC than SETUP said");
    }
    if (!expectedSequence_)
    {
        add(text, "RTP-Info does not name the track");
    }
    else if (*expectedSequence_ != firstSequence_)
    {
        add(text, "first sequence number " + std::to_string(firstSequence_) + ", RTP-Info said " +
                      std::to_string(*expectedSequence_));
    }
    if (expectedRtpTime_ && *expectedRtpTime_ != firstRtpTime_)
    {
        add(text, "first timestamp " + std::to_string(firstRtpTime_) + ", RTP-Info said " +
                      std::to_string(*expectedRtpTime_));
    }
    if (badRtcp_ != 0)
    {
        add(text, std::to_string(badRtcp_) + " bad RTCP packets");
    }
    if (senderReportDue && senderReports_ == 0)
    {
        add(text, "no sender report");
    }
    return text;
}

}  // namespace rtspload
