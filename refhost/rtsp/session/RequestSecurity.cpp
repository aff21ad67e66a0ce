#include "refhost/rtsp/session/RequestSecurity.h"

#include <openssl/crypto.h>

#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/rtp/srtp/CryptoAttribute.h"
#include "refhost/rtp/srtp/SrtpProtection.h"
#include "refhost/rtsp/message/KeyMgmtHeader.h"
#include "refhost/rtsp/session/MediaTarget.h"

namespace refhost
{
namespace
{

constexpr std::string_view keysInClear = "SRTP keys are sent on TLS connections only";

std::vector<std::uint8_t> messageOf(const SrtpKey& key,
                                    const std::vector<MikeyMessage::CryptoSession>& sessions)
{
    const HostClock& clock = HostClock::system();
    return MikeyMessage::write(key, sessions, clock.wall().mapping().at(clock.now()));
}

/// The attributes of a track's key.
std::string linesOf(const SrtpKey& key, bool inCrypto)
{
    std::vector<std::uint8_t> message = messageOf(key, {});
    std::string text = "a=key-mgmt:";
    KeyMgmtHeader::appendAttribute(text, message);
    text += "\r\n";
    if (inCrypto)
    {
        text += "a=crypto:";
        CryptoAttribute::append(text, key);
        text += "\r\n";
    }
    OPENSSL_cleanse(message.data(), message.size());
    return text;
}

}  // namespace

RequestSecurity::RequestSecurity(RtspServices& services, ClientConnection& connection,
                                 OfferedKeys& offeredKeys)
    : services_(services), connection_(connection), offeredKeys_(offeredKeys)
{
}

Protection RequestSecurity::protectionOf(const RequestContext& context) const
{
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    return services_.policy.get()->security.of(
        route != nullptr ? MediaTarget::of(*route, context.url.presentation).camera : std::nullopt);
}

RequestSecurity::Description RequestSecurity::description(const RequestContext& context) const
{
    const MediaRoutes::Route* const route = services_.routes.find(context.url.presentation);
    const Protection protection = protectionOf(context);
    const bool encrypted = connection_.encrypted();
    const auto policy = services_.policy.get();
    if (route != nullptr && route->multicast())
    {
        if (protection == Protection::tls)
        {
            return {false, "no group is sent inside TLS"};
        }
        const bool srtp = MediaSecurity::encryptsGroup(protection);
        return {srtp, srtp && !policy->security.keysAllowed(encrypted) ? keysInClear : ""};
    }
    if (protection == Protection::tls && !encrypted)
    {
        return {false, "it needs a TLS connection"};
    }
    const bool srtp =
        MediaSecurity::describesSrtp(protection, encrypted, context.url.has("security", "srtp"));
    return {srtp, srtp && !policy->security.keysAllowed(encrypted) ? keysInClear : ""};
}

std::vector<SdpWriter::KeyLines> RequestSecurity::offerKeys(const std::string& presentation,
                                                            const MediaInfo& info, bool srtp)
{
    std::vector<SdpWriter::KeyLines> lines;
    if (!srtp)
    {
        offeredKeys_.remove(presentation);
        return lines;
    }
    OfferedKeys::Offer offer;
    offer.presentation = presentation;
    offer.inCrypto = connection_.encrypted();
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        const SrtpKey key = SrtpKey::random(services_.policy.get()->srtpSuite);
        lines.push_back({track.trackId, linesOf(key, offer.inCrypto)});
        offer.tracks.push_back({track.trackId, key});
    }
    offeredKeys_.add(std::move(offer));
    return lines;
}

/// Not in "crypto" attributes, which have no place for the rollover counter: whoever joins late could decrypt nothing.
std::vector<SdpWriter::KeyLines> RequestSecurity::offerGroupKeys(const RequestContext& context,
                                                                 GroupKeys::Stream stream,
                                                                 const MediaInfo& info)
{
    std::vector<SdpWriter::KeyLines> lines;
    OfferedKeys::Offer offer;
    offer.presentation = context.url.presentation;
    int number = 0;
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        const SrtpKey key =
            services_.groupKeys
                .hand(stream, number++, context.user, services_.policy.get()->srtpSuite, services_.now())
                .key;
        lines.push_back({track.trackId, linesOf(key, false)});
        offer.tracks.push_back({track.trackId, key});
    }
    offeredKeys_.add(std::move(offer));
    return lines;
}

std::optional<GroupKeys::Track> RequestSecurity::protectGroup(const RequestContext& context,
                                                              GroupKeys::Stream stream, int number) const
{
    const SrtpKey* const offered = offeredKeys_.find(context.url.presentation, context.url.track);
    if (offered != nullptr && !services_.groupKeys.isCurrent(stream, number, *offered))
    {
        return std::nullopt;
    }
    return services_.groupKeys.hand(stream, number, context.user, services_.policy.get()->srtpSuite,
                                    services_.now());
}

bool RequestSecurity::admits(const RequestContext& context, TransportChoice& choice,
                             std::string_view& refusal) const
{
    const bool encrypted = connection_.encrypted();
    // Readers of "crypto" attributes ask for RTP/AVP.
    choice.secure = choice.secure || offeredKeys_.inCrypto(context.url.presentation);
    if (choice.multicast && choice.secure && !MediaSecurity::encryptsGroup(protectionOf(context)))
    {
        return false;  // all members get the same
    }
    if (!MediaSecurity::admits(protectionOf(context), encrypted, choice))
    {
        refusal = "its transport is not encrypted as the camera requires";
        return false;
    }
    if (choice.secure && !services_.policy.get()->security.keysAllowed(encrypted))
    {
        refusal = keysInClear;
        return false;
    }
    return true;
}

void RequestSecurity::refuse(RequestContext& context, std::string_view reason)
{
    Log::limited(Log::Level::info, "requests refused for want of encryption", "{}: {} of {}: refused: {}",
                 context.connection.peer().text(), context.request.method, Log::safe(context.request.uri),
                 reason);
    context.answer(rtspForbidden);
}

bool RequestSecurity::readClientKey(const RtspRequest& request, std::optional<SrtpKey>& out)
{
    const RtspRequest::Header* const header = request.find("KeyMgmt");
    if (header == nullptr)
    {
        return true;
    }
    const auto message = KeyMgmtHeader::parse(header->value);
    if (!message || !SrtpOpener::supports(message->key.suite()))
    {
        return false;
    }
    out = message->key;
    return true;
}

std::shared_ptr<ProtectedSender> RequestSecurity::protect(const RtspUrl& url,
                                                          const std::optional<SrtpKey>& clientKey,
                                                          std::optional<SrtpKey>& newKey) const
{
    const SrtpKey* const offered = offeredKeys_.find(url.presentation, url.track);
    if (offered == nullptr)
    {
        newKey = SrtpKey::random(services_.policy.get()->srtpSuite);
    }
    const SrtpKey& key = offered == nullptr ? *newKey : *offered;
    return std::make_shared<ProtectedSender>(std::make_shared<SrtpProtection>(key, clientKey.value_or(key)));
}

void RequestSecurity::addKey(ResponseWriter& out, const RtspUrl& url, const SrtpKey& key,
                             const MikeyMessage::CryptoSession& session)
{
    std::vector<std::uint8_t> message = messageOf(key, {session});
    out.startHeader("KeyMgmt");
    KeyMgmtHeader::append(out.text(), url.base, message);
    out.endHeader();
    OPENSSL_cleanse(message.data(), message.size());
}

}  // namespace refhost
