#include "refhost/recording/DamageLog.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

std::string textOf(WallTime time)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(unixSeconds(time))));
}

}  // namespace

DamageLog::DamageLog(std::string title) : title_(std::move(title)) {}

void DamageLog::add(WallTime at)
{
    first_ = frames_ == 0 ? at : first_;
    last_ = at;
    ++frames_;
}

void DamageLog::write()
{
    const std::string first = textOf(first_);
    const std::string last = textOf(last_);
    Log::warning("{}: packets were lost, {} damaged in the recording, {}", title_,
                 frames_ == 1 ? "a frame is" : fmt::format("{} frames are", frames_),
                 first == last ? first : fmt::format("{} to {}", first, last));
    frames_ = 0;
}

}  // namespace refhost
