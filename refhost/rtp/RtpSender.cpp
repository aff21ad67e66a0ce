#include "refhost/rtp/RtpSender.h"

#include <algorithm>

#include "refhost/base/HostStatus.h"
#include "refhost/base/RandomBytes.h"
#include "refhost/base/ServerFigures.h"

namespace refhost
{

RtpSender::RtpSender(int payloadType, const RtcpWriter::Name& name, const HostClock& clock,
                     Duration reportInterval)
    : name_(name),
      clock_(clock),
      reportInterval_(reportInterval),
      payloadType_(static_cast<std::uint8_t>(payloadType & 0x7f))
{
}

RtpSender::~RtpSender() = default;

RtpSender::InitialValues RtpSender::InitialValues::random()
{
    InitialValues values{};
    fillRandom(&values, sizeof(values));
    // In the lower half, so that a receiver of SRTP who misses the first packets does not miss that the numbers
    // started over (RFC 3711, section 3.3.1).
    values.sequence &= 0x7fffU;
    return values;
}

int RtpSender::connect(const SafePointer<IConnection>& connection,
                       const std::shared_ptr<TransportListener>& listener)
{
    auto* transport = connection.isEmpty() ? nullptr : dynamic_cast<RtpTransport*>(connection.operator->());
    if (transport == nullptr)
    {
        return hostConnectionUnusable;
    }
    if (transport_ != nullptr)
    {
        transport_->setListener({});
    }
    connection_.emplace(connection);
    transport_ = transport;
    transport_->setListener(listener);
    return 0;
}

void RtpSender::disconnect()
{
    if (transport_ == nullptr)
    {
        return;
    }
    transport_->setListener({});
    transport_ = nullptr;
    connection_.reset();
}

SendResult RtpSender::send(const AccessUnitPtr& unit, std::size_t firstPacket, std::uint32_t timestamp,
                           bool more)
{
    const SendResult result =
        transport_->send(unit, firstPacket, {initial_.ssrc, sequence_, timestamp, payloadType_}, more);
    account(*unit, firstPacket, result.packets);
    transport_->sent.bytes.store(octets_, std::memory_order_relaxed);
    return result;
}

void RtpSender::account(const AccessUnit& unit, std::size_t firstPacket, std::size_t packets)
{
    if (packets == unit.packets.size())
    {
        octets_ += unit.payloadBytes;
    }
    else
    {
        for (std::size_t i = firstPacket; i < firstPacket + packets; ++i)
        {
            octets_ += unit.packets[i].size - unit.headerSize(i);
        }
    }
    statistics_.octets = static_cast<std::uint32_t>(octets_);
    sequence_ = static_cast<std::uint16_t>(sequence_ + packets);
    statistics_.packets += static_cast<std::uint32_t>(packets);
}

void RtpSender::sendReport(MonotonicTime now, WallTime wall, std::uint32_t rtpTimestamp)
{
    const RtcpWriter packet({initial_.ssrc, wall, rtpTimestamp, statistics_.packets, statistics_.octets},
                            name_, false);
    transport_->sendRtcp(packet.data(), packet.size());
    ++statistics_.reportsSent;
    // Between half and one and a half intervals (RFC 3550, section 6.2), so that the reports of viewers who
    // joined together spread out.
    reportJitter_ ^= reportJitter_ << 13U;
    reportJitter_ ^= reportJitter_ >> 17U;
    reportJitter_ ^= reportJitter_ << 5U;
    reportDue_ = now + reportInterval_ / 2 + reportInterval_ * (reportJitter_ >> 16U) / 65536;
}

void RtpSender::sendBye(WallTime wall, std::uint32_t rtpTimestamp)
{
    if (transport_ == nullptr)
    {
        return;
    }
    const RtcpWriter packet({initial_.ssrc, wall, rtpTimestamp, statistics_.packets, statistics_.octets},
                            name_, true);
    transport_->sendRtcp(packet.data(), packet.size());
}

void RtpSender::readReport(const std::uint8_t* data, std::size_t size, std::uint32_t clockRate)
{
    RtcpFindings findings;
    if (!RtcpReader::read(data, size, initial_.ssrc, findings))
    {
        ++statistics_.reportsRefused;
        return;
    }
    if (!findings.reported)
    {
        return;
    }
    ++statistics_.reportsRead;
    statistics_.reception = findings.report;
    if (clockRate > 0)
    {
        const double seconds = static_cast<double>(findings.report.jitter) / clockRate;
        ServerFigures::instance().receiverJitter.add(durationOf(std::chrono::duration<double>(seconds)));
    }
    if (transport_ != nullptr)
    {
        transport_->sent.lost.store(static_cast<std::uint64_t>(std::max(findings.report.cumulativeLost, 0)),
                                    std::memory_order_relaxed);
    }
    if (findings.report.lastReport != 0)
    {
        // RFC 3550, section 6.4.1; a client's wrong numbers must not make it negative.
        const std::uint32_t now = NtpTime(clock_.wall().mapping().at(clock_.now())).compact();
        const auto trip =
            static_cast<std::int32_t>(now - findings.report.lastReport - findings.report.delaySinceReport);
        statistics_.roundTrip = spanOfCompactNtp(static_cast<std::uint32_t>(std::max(trip, 0)));
    }
}

}  // namespace refhost
