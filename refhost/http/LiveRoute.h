#pragma once
// Tested by tests/refhost/http/LiveRoute_test.cpp.

#include <functional>
#include <memory>

#include "refhost/access/AccessControl.h"
#include "refhost/fragments/FragmentStreams.h"
#include "refhost/http/BackgroundWork.h"
#include "refhost/http/HttpRouter.h"
#include "refhost/playback/RecordingDirectory.h"

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
///
/// With `?start=` it sends recordings instead, as the same kind of messages (RecordedSocket), beginning with the key frame
/// at or before that instant. A text message in front of each contiguous range says which date is where on the media's
/// timeline, the first one also where the instant itself is; the last one says that nothing follows. `end` limits the
/// interval. `speed` is 0.25 to 16: above 4 there are key frames only, and so there are backwards, when it is negative; the
/// client plays them so fast. With `ahead`, no more than so many seconds of media are sent before the client sends
/// how far on the timeline it wants them: a line with a number of seconds. Such connections are bounded by maxRecorded.
class LiveRoute
{
public:
    /// Connections that watch recordings.
    static constexpr int maxRecorded = 64;

    /// What recordings come from.
    struct Recorded
    {
        BackgroundWork& work;  ///< outlives the router
        std::function<std::shared_ptr<const RecordingDirectory>()>
            recordings;  ///< the present ones; null when there are none
    };

    /// \param access   outlives the router
    /// \param streams  not null
    static void add(HttpRouter& router, const AccessControl& access, std::shared_ptr<FragmentStreams> streams,
                    Recorded recorded);

private:
    class Handler;
};

}  // namespace refhost
