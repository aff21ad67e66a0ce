#pragma once

#include <memory>

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"
#include "refhost/snapshot/SnapshotService.h"

namespace refhost
{

/// `GET /api/v1/cameras/{camera}/streams/{stream}/snapshot.jpg[?width=…][&time=…]`: the last key frame of a stream, or
/// that of a recorded instant, as a JPEG file. The first needs the right to watch the camera live, the second that to
/// play its recordings. Threads: see HttpService.
class SnapshotRoutes
{
public:
    /// \param snapshots  not null
    static void add(HttpRouter& router, const ServerView& view, std::shared_ptr<SnapshotService> snapshots);
};

}  // namespace refhost
