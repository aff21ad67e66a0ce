#pragma once

#include <functional>
#include <memory>

#include "refhost/http/BackgroundWork.h"
#include "refhost/http/HttpRouter.h"
#include "refhost/playback/RecordingDirectory.h"

namespace refhost
{

/// `GET /api/v1/recordings/{camera}/export.mp4?start=…&end=…[&stream=…]`: a recorded interval as an MP4 file, made while
/// it is sent. Its length is announced and parts of it can be requested, so that a download can be resumed.
///
/// At most maxExports at once; others are refused with 503. Threads: see HttpService.
class ExportRoutes
{
public:
    static constexpr int maxExports = 4;

    /// The present recordings; null when there are none.
    using Recordings = std::function<std::shared_ptr<const RecordingDirectory>()>;

    /// \param work  outlives the routes
    static void add(HttpRouter& router, BackgroundWork& work, Recordings recordings);
};

}  // namespace refhost
