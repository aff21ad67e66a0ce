#pragma once
// Tested by tests/refhost/http/LiveRoute_test.cpp.

#include <memory>

#include "refhost/access/AccessControl.h"
#include "refhost/fragments/FragmentStreams.h"
#include "refhost/http/HttpRouter.h"

namespace refhost
{

/// GET /api/v1/cameras/{camera}/streams/{stream}/live: a stream for a browser's Media Source Extensions, through a
/// WebSocket. `?audio=0` leaves out the audio.
///
/// The server sends a text message that describes the tracks, the init segment, and one MP4 fragment for each frame and
/// each block of audio, from the newest key frame that is kept on. Another description may follow: then another init
/// segment does, and the media start again. What the client sends is ignored. Bounds: connections are limited by the
/// service, and a client that is slow loses whole GOPs (FragmentStream). The connection ends soon after the user loses
/// the right to watch the camera, and after the stream is configured no more or has another source.
class LiveRoute
{
public:
    /// \param access   outlives the router
    /// \param streams  not null
    static void add(HttpRouter& router, const AccessControl& access,
                    std::shared_ptr<FragmentStreams> streams);
};

}  // namespace refhost
