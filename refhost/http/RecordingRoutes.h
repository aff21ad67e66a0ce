#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/recordings?camera&start&end: the contiguous ranges of what was recorded, and the gaps between them, for
/// the cameras that the user may play back. GET and PUT /api/v1/cameras/{camera}/recording: switches recording on and
/// off. POST /api/v1/cameras/{camera}/events: something happened that is to be recorded.
class RecordingRoutes
{
public:
    /// Max number of ranges and gaps in a reply; what follows is in the next one, from `next` on.
    static constexpr std::size_t maxRanges = 10000;

    /// Max seconds that an event may ask for.
    static constexpr int maxPostRoll = 3600;

    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
