#pragma once
// Tested by tests/refhost/http/HlsRoutes_test.cpp.

#include <memory>

#include "refhost/fragments/HlsStream.h"
#include "refhost/http/HttpRouter.h"

namespace refhost
{

/// A camera's stream as low-latency HLS, which players without it play as plain HLS:
///
///     GET /api/v1/cameras/{camera}/streams/{stream}/hls/index.m3u8    the multivariant playlist
///     GET /api/v1/cameras/{camera}/streams/{stream}/hls/live.m3u8     the media playlist, `?_HLS_msn=…&_HLS_part=…`
///     GET /api/v1/cameras/{camera}/streams/{stream}/hls/media/{file}  an init segment, a segment or a part
///
/// What is still to come is waited for, by neither a thread nor the loop: a playlist with a certain part, and the part
/// that the playlist hints at. What does not come in time, and what is one too many, is refused with 503.
///
/// Replies say how long caches may keep them. Those to a user that logged in are for that user's cache alone.
class HlsRoutes
{
public:
    /// \param streams  not null
    static void add(HttpRouter& router, std::shared_ptr<HlsStreams> streams);
};

}  // namespace refhost
