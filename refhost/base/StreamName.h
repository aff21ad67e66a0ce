#pragma once

#include <string>
#include <string_view>

namespace refhost
{

/// How the log names a stream, the same in every line: `camera 2/0 "yard"`, and `camera 2/0` where its camera
/// has no name.
class StreamName
{
public:
    /// \param cameraName  as configured; may be empty
    static std::string of(int cameraId, int streamId, std::string_view cameraName = {});
};

}  // namespace refhost
