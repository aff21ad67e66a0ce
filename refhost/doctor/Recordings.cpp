#include "refhost/doctor/Recordings.h"

#include <system_error>

namespace refhost
{

bool recordsAnything(const ServerConfig& config)
{
    return recordedBitRate(config) > 0;
}

int recordedBitRate(const ServerConfig& config)
{
    int sum = 0;
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            sum += stream.isRecorded() ? stream.bitRate : 0;
        }
    }
    return sum;
}

std::filesystem::path existingParent(const std::string& path)
{
    std::error_code ignored;
    std::filesystem::path present = std::filesystem::absolute(path, ignored).lexically_normal();
    while (!std::filesystem::exists(present, ignored) && present.has_relative_path())
    {
        present = present.parent_path();
    }
    return present.has_filename() ? present : present.parent_path();
}

}  // namespace refhost
