#include "refhost/ingest/RefusalLog.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

RefusalLog::RefusalLog(std::string track) : track_(std::move(track)) {}

RefusalLog::~RefusalLog()
{
    if (refused_ > 1)
    {
        Log::info("{}: {} packets were refused", track_, refused_);
    }
}

void RefusalLog::onRefused(const char* why, MonotonicTime arrival)
{
    ++refused_;
    last_ = arrival;
    const bool known = std::any_of(reasons_.begin(), reasons_.end(),
                                   [why](const char* reason) { return std::strcmp(reason, why) == 0; });
    if (!known && reasons_.size() < maxReasons)
    {
        reasons_.push_back(why);
        Log::warning("{}: packets are refused: {}", track_, why);
    }
}

void RefusalLog::end()
{
    Log::info("{}: packets are taken again, {} were refused", track_, refused_);
    refused_ = 0;
    reasons_.clear();
}

}  // namespace refhost
