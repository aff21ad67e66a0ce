#pragma once
// Tested by tests/refhost/http/TalkRoute_test.cpp.

#include <chrono>
#include <cstddef>

#include "refhost/access/AccessControl.h"
#include "refhost/base/HostClock.h"
#include "refhost/http/HttpRouter.h"

namespace refhost
{

/// GET /api/v1/cameras/{camera}/talk: talk-back through a WebSocket. What the client sends in binary messages is PCMU of
/// 8 kHz and one channel, wherever messages begin and end.
///
/// The server sends text messages: `{"type":"floor","audible":…,"by":…}` at first and whenever it changes who is audible, and
/// `{"type":"refused","detail":…}` before it closes a connection that gets no talk-back session.
///
/// The connection is one talk-back session of the device, with the policy, the limits and the audit of all of them. It ends
/// with a text message of the client, when the client sends more audio than passes in the time and `maxAhead`, when it
/// sends none for `maxSilence`, and soon after the user loses the right to talk or the camera its talk-back.
class TalkRoute
{
public:
    /// Bytes of audio that a client may be ahead: what it gathered while it connected, and after a pause of the network.
    static constexpr std::size_t maxAhead = 24000;
    static constexpr std::chrono::seconds maxSilence{10};

    /// \param access, clock  outlive the router
    static void add(HttpRouter& router, const AccessControl& access, const HostClock& clock);
};

}  // namespace refhost
