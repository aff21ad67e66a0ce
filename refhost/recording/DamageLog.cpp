#include "refhost/recording/DamageLog.h"

#include <fmt/format.h>

#include <utility>

#include "refhost/base/Log.h"
#include "refhost/recording/IntervalText.h"

namespace refhost
{
DamageLog::DamageLog(std::string title) : title_(std::move(title)) {}

void DamageLog::add(WallTime at)
{
    first_ = frames_ == 0 ? at : first_;
    last_ = at;
    ++frames_;
}

void DamageLog::write()
{
    Log::warning("{}: packets were lost, {} damaged in the recording, {}", title_,
                 frames_ == 1 ? "a frame is" : fmt::format("{} frames are", frames_),
                 IntervalText::of(first_, last_));
    frames_ = 0;
}

}  // namespace refhost
