#include "refhost/recording/SlownessLog.h"

#include <utility>

#include "refhost/base/Log.h"
#include "refhost/recording/IntervalText.h"

namespace refhost
{

void SlownessLog::onSkip(const std::string& title, WallTime since)
{
    since_ = since;
    Log::write(std::exchange(reported_, true) ? Log::Level::debug : Log::Level::warning,
               title + ": the disk is too slow, some of the recording is left out");
}

void SlownessLog::onCaughtUp(const std::string& title, WallTime until)
{
    Log::write(pause_.isOver() ? Log::Level::warning : Log::Level::debug,
               title + ": the disk was too slow; missing: " + IntervalText::of(since_, until));
}

}  // namespace refhost
