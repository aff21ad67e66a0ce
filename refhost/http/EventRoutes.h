#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include <cstddef>

#include "refhost/access/AccessControl.h"
#include "refhost/http/HttpRouter.h"

namespace refhost
{

/// GET /api/v1/events: what happens in the server, as server-sent events (HTML, "Server-sent events"): the lines of the
/// audit log, changes of cameras, and whatever else ServerEvents passes on. For users with the right "admin" to every
/// camera; the stream ends when its user loses it: with the next event, within BodySource::maxSilence.
class EventRoutes
{
public:
    /// Clients at once; others get 503.
    static constexpr std::size_t maxClients = 16;
    /// Events that wait for one client; it is informed of how many more it missed.
    static constexpr std::size_t maxWaiting = 256;

    /// \param access  outlives the router
    static void add(HttpRouter& router, const AccessControl& access);
};

}  // namespace refhost
