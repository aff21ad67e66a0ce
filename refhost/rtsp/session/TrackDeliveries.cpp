#include "refhost/rtsp/session/TrackDeliveries.h"

#include <string_view>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

void appendPair(std::string& out, std::string_view name, int first, int second)
{
    out.append(";").append(name).append("=");
    appendDecimal(out, static_cast<std::uint64_t>(first));
    out += '-';
    appendDecimal(out, static_cast<std::uint64_t>(second));
}

}  // namespace

TrackDeliveries::TrackDeliveries(RtspServices& services, ClientConnection& connection,
                                 std::shared_ptr<InterleavedChannels>& channels)
    : services_(services), connection_(connection), channels_(channels)
{
}

std::optional<TransportChoice> TrackDeliveries::choose(const RtspRequest& request, bool multicast,
                                                       const TransportHeader::Admit& admit) const
{
    const int serverPort = services_.udp == nullptr ? 0 : services_.udp->rtpPort();
    for (const RtspRequest::Header* header = request.find("Transport"); header != nullptr;
         header = request.find("Transport", header))
    {
        const auto choice = TransportHeader::choose(header->value, multicast, serverPort, admit);
        if (choice)
        {
            return choice;
        }
    }
    return std::nullopt;
}

RtspStatus TrackDeliveries::make(const TransportChoice& choice, const RtspSession& session,
                                 std::string_view trackId, const std::shared_ptr<ProtectedSender>& protection,
                                 RtspSession::Delivery& out, std::string& text)
{
    if (choice.multicast)
    {
        return makeMulticast(session, trackId, protection, out, text);
    }
    return choice.interleaved ? makeInterleaved(choice, session, protection, out, text)
                              : makeUdp(choice, session, protection, out, text);
}

RtspStatus TrackDeliveries::makeUdp(const TransportChoice& choice, const RtspSession& session,
                                    const std::shared_ptr<ProtectedSender>& protection,
                                    RtspSession::Delivery& out, std::string& text)
{
    if (services_.udp == nullptr)
    {
        return rtspUnsupportedTransport;
    }
    out.transport.emplace(services_.udp->makeTransport(connection_.peer(), choice.rtpPort, choice.rtcpPort,
                                                       session.liveness(), protection));
    text = protection == nullptr ? "RTP/AVP;unicast" : "RTP/SAVP;unicast";
    appendPair(text, "client_port", choice.rtpPort, choice.rtcpPort);
    appendPair(text, "server_port", services_.udp->rtpPort(), services_.udp->rtcpPort());
    return rtspOk;
}

RtspStatus TrackDeliveries::makeMulticast(const RtspSession& session, std::string_view trackId,
                                          const std::shared_ptr<ProtectedSender>& protection,
                                          RtspSession::Delivery& out, std::string& text)
{
    const SharedStream* const shared = session.shared();
    if (services_.multicast == nullptr || shared == nullptr)
    {
        return rtspUnsupportedTransport;
    }
    const int number = shared->numberOf(trackId);
    if (number < 0 || number >= MulticastGroup::tracks)
    {
        return rtspNotFound;
    }
    MulticastDestination destination;
    if (!services_.multicast->makeTransport(shared->stream, number, out.transport, destination, protection))
    {
        return rtspServiceUnavailable;
    }
    text.assign(protection == nullptr ? "RTP/AVP" : "RTP/SAVP");
    text.append(";multicast;destination=").append(destination.group.addressText());
    appendPair(text, "port", destination.group.portOf(number), destination.group.portOf(number) + 1);
    text += ";ttl=";
    appendDecimal(text, static_cast<std::uint64_t>(destination.ttl));
    if (!destination.source.empty())
    {
        text.append(";source=").append(destination.source);
    }
    return rtspOk;
}

RtspStatus TrackDeliveries::makeInterleaved(const TransportChoice& choice, const RtspSession& session,
                                            const std::shared_ptr<ProtectedSender>& protection,
                                            RtspSession::Delivery& out, std::string& text)
{
    if (channels_ == nullptr)
    {
        channels_ = std::make_shared<InterleavedChannels>();
    }
    auto lease = channels_->lease(choice.rtpChannel, choice.rtcpChannel);
    if (lease == nullptr)
    {
        return rtspUnsupportedTransport;
    }
    const SafePointer<InterleavedTransport> transport(new InterleavedTransport(
        connection_.frameWriter(), lease->rtpChannel(), lease->rtcpChannel(), session.liveness()));
    if (protection != nullptr)
    {
        transport->protect(protection);
    }
    lease->deliverTo(transport);
    out.transport.emplace(transport);
    out.connection = connection_.serial();
    text = protection == nullptr ? "RTP/AVP/TCP;unicast" : "RTP/SAVP/TCP;unicast";
    appendPair(text, "interleaved", lease->rtpChannel(), lease->rtcpChannel());
    out.channels = std::move(lease);
    return rtspOk;
}

void TrackDeliveries::answer(ResponseWriter& out, const std::string& text, std::uint32_t ssrc)
{
    out.startHeader("Transport");
    out.text().append(text).append(";ssrc=");
    appendHex32(out.text(), ssrc);
    out.text() += ";mode=\"PLAY\"";
    out.endHeader();
}

}  // namespace refhost
