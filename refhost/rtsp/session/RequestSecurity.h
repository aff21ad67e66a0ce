#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerSrtp_test.cpp.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/MediaInfo.h"
#include "refhost/rtp/ProtectedSender.h"
#include "refhost/rtsp/message/SdpWriter.h"
#include "refhost/rtsp/message/TransportHeader.h"
#include "refhost/rtsp/session/ClientConnection.h"
#include "refhost/rtsp/session/OfferedKeys.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"

namespace refhost
{

/// How the media of one connection's requests are encrypted: what is described and admitted, and the keys.
/// Threads: the connection's; a temporary, whose arguments outlive it.
class RequestSecurity
{
public:
    /// How a presentation is described.
    struct Description
    {
        bool srtp = false;           ///< with profile RTP/SAVP and keys
        std::string_view refusal{};  ///< why it is not described; empty: it is
    };

    /// \param offeredKeys  the connection's
    RequestSecurity(RtspServices& services, ClientConnection& connection, OfferedKeys& offeredKeys);

    Description description(const RequestContext& context) const;

    /// Makes new keys for a description and keeps them for SETUP; without `srtp` it forgets former ones.
    std::vector<SdpWriter::KeyLines> offerKeys(const std::string& presentation, const MediaInfo& info,
                                               bool srtp);
    /// The same with the keys of a group.
    std::vector<SdpWriter::KeyLines> offerGroupKeys(const RequestContext& context, GroupKeys::Stream stream,
                                                    const MediaInfo& info);

    /// Whether a transport of SETUP may be used.
    /// \param[in,out] choice  becomes RTP/SAVP where the client means it
    /// \param[out] refusal  why not, where the camera's protection is the reason
    bool admits(const RequestContext& context, TransportChoice& choice, std::string_view& refusal) const;

    /// Answers 403, with the reason in the log.
    static void refuse(RequestContext& context, std::string_view reason);

    /// Reads the key of what the client sends.
    /// \param[out] out  nothing when the client names none, and uses the device's key
    /// \returns false for a header that holds no key that this server takes
    static bool readClientKey(const RtspRequest& request, std::optional<SrtpKey>& out);

    /// Makes the encryption of one track.
    /// \param[out] newKey  the device's key, when no description announced it
    std::shared_ptr<ProtectedSender> protect(const RtspUrl& url, const std::optional<SrtpKey>& clientKey,
                                             std::optional<SrtpKey>& newKey) const;

    /// Hands the encryption of a track of a group.
    /// \param number  of the track in the group
    /// \returns nothing when a description on this connection announced a key that has been replaced since
    std::optional<GroupKeys::Track> protectGroup(const RequestContext& context, GroupKeys::Stream stream,
                                                 int number) const;

    /// Adds the device's key to the response to SETUP.
    static void addKey(ResponseWriter& out, const RtspUrl& url, const SrtpKey& key,
                       const MikeyMessage::CryptoSession& session);

private:
    Protection protectionOf(const RequestContext& context) const;

    RtspServices& services_;
    ClientConnection& connection_;
    OfferedKeys& offeredKeys_;
};

}  // namespace refhost
