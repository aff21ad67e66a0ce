#pragma once

#include <string>
#include <string_view>

namespace refhost
{

/// The name of a stream in log lines: `camera 2/0 "yard"`, or `camera 2/0` when its camera has no name.
class StreamName
{
public:
    /// \param cameraName  as configured; may be empty
    static std::string of(int cameraId, int streamId, std::string_view cameraName = {});
};

}  // namespace refhost
