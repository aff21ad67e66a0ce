#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "refhost/media/StreamSource.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{

/// A camera stream without a camera: passes on the encoded units of a test, and knows when they were
/// processed.
class RecordedStreamFake : public StreamSource
{
public:
    Description describe(std::vector<SubMediaInfo>& tracks) override
    {
        tracks.resize(1);
        tracks[0].mediaType = "video";
        if (audio)
        {
            tracks.resize(2);
            tracks[1].mediaType = "audio";
        }
        return Description::ready;
    }
    void attach(const std::string&, int, std::shared_ptr<AccessUnitSink>) override {}
    void detach(const AccessUnitSink*) override {}
    void attachMedia(std::shared_ptr<EncodedUnitSink> sink) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        sink_ = std::move(sink);
        ++attachments_;
        changed_.notify_all();
    }
    void detachMedia(const EncodedUnitSink*) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        sink_.reset();
    }
    void acquire() override
    {
        ++viewers;
    }
    void release() override
    {
        --viewers;
    }
    void requestKeyFrame() override
    {
        ++keyFrameRequests;
    }

    bool isAttached() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return sink_ != nullptr;
    }
    /// Waits until a sink was attached so many times and is attached now.
    bool waitUntilAttached(int times = 1)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10),
                                 [&] { return sink_ != nullptr && attachments_ >= times; });
    }

    void give(const EncodedUnitPtr& unit)
    {
        std::shared_ptr<EncodedUnitSink> sink;
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (sink_ == nullptr)
            {
                return;  // as while a source's sink is exchanged
            }
            ++alive_;
            sink = sink_;
        }
        const auto dealtWith = [this, unit](const EncodedUnit*)
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            --alive_;
            changed_.notify_all();
        };
        sink->onEncodedUnit(EncodedUnitPtr(unit.get(), dealtWith));
    }

    /// Gives the frames of [begin, end) seconds, 25 a second with a key frame each second, and the audio.
    void giveMedia(double begin, double end, std::size_t frameBytes = 1000)
    {
        for (auto i = static_cast<int>(std::lround(begin * 25)); i < std::lround(end * 25); ++i)
        {
            give(made.frame(i / 25.0, i % 25 == 0, frameBytes));
            if (audio)
            {
                give(made.block(i / 25.0));
                give(made.block(i / 25.0 + 0.02));
            }
        }
    }

    void interrupt()
    {
        sink_->onDiscontinuity();
    }

    int unitsAlive() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return alive_;
    }

    /// Waits until every unit was written or skipped.
    void drain()
    {
        std::unique_lock<std::mutex> guard(mutex_);
        EXPECT_TRUE(changed_.wait_for(guard, std::chrono::seconds(10), [&] { return alive_ == 0; }));
    }

    MadeUnits made;
    bool audio = false;
    std::atomic<int> viewers{0};
    std::atomic<int> keyFrameRequests{0};

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::shared_ptr<EncodedUnitSink> sink_;
    int attachments_ = 0;
    int alive_ = 0;
};

}  // namespace refhost
