#include "refhost/recording/SegmentPath.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <ctime>

namespace refhost
{

std::string SegmentPath::toString() const
{
    const auto second = std::chrono::floor<std::chrono::seconds>(begin);
    const auto rest = std::chrono::floor<std::chrono::microseconds>(begin - second);
    return fmt::format("{}/{}/{:%Y%m%dT%H%M%S}.{:06}Z.mkv", cameraId, streamId,
                       fmt::gmtime(static_cast<std::time_t>(unixSeconds(begin))), rest.count());
}

std::optional<SegmentPath> SegmentPath::parse(const std::string& path)
{
    std::tm time{};
    int microseconds = 0;
    SegmentPath found;
    const int read = std::sscanf(path.c_str(), "%9d/%9d/%4d%2d%2dT%2d%2d%2d.%6dZ.mkv", &found.cameraId,
                                 &found.streamId, &time.tm_year, &time.tm_mon, &time.tm_mday, &time.tm_hour,
                                 &time.tm_min, &time.tm_sec, &microseconds);
    if (read != 9)
    {
        return std::nullopt;
    }
    time.tm_year -= 1900;
    time.tm_mon -= 1;
    found.begin = saturatedWallTime(
        WallMicroseconds(std::chrono::seconds(timegm(&time)) + std::chrono::microseconds(microseconds)));
    // Anything else, such as a 61st second or a sign, is not a segment.
    return found.cameraId >= 0 && found.streamId >= 0 && found.toString() == path ? std::make_optional(found)
                                                                                  : std::nullopt;
}

}  // namespace refhost
