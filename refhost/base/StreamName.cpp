#include "refhost/base/StreamName.h"

#include <fmt/format.h>

namespace refhost
{

std::string StreamName::of(int cameraId, int streamId, std::string_view cameraName)
{
    return cameraName.empty() ? fmt::format("camera {}/{}", cameraId, streamId)
                              : fmt::format("camera {}/{} \"{}\"", cameraId, streamId, cameraName);
}

}  // namespace refhost
