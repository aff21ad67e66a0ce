#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "refhost/live/LiveDispatcher.h"
#include "refhost/media/Device.h"
#include "refhost/media/StreamSource.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{

/// A source that a test feeds by hand.
class FakeSource : public StreamSource
{
public:
    struct Tap
    {
        std::string trackId;
        int payloadSize;
        std::shared_ptr<AccessUnitSink> sink;
    };

    Description describe(std::vector<SubMediaInfo>&) override
    {
        return Description::ready;
    }

    void attach(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        taps_.push_back({trackId, payloadSize, std::move(sink)});
        ++attached;
    }

    void attachMedia(std::shared_ptr<EncodedUnitSink>) override {}
    void detachMedia(const EncodedUnitSink*) override {}
    void detach(const AccessUnitSink* sink) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        for (auto tap = taps_.begin(); tap != taps_.end(); ++tap)
        {
            if (tap->sink.get() == sink)
            {
                taps_.erase(tap);
                ++detached;
                return;
            }
        }
    }

    void acquire() override
    {
        ++viewers;
        ++acquired;
    }

    void release() override
    {
        --viewers;
    }

    void requestKeyFrame() override
    {
        ++keyRequests;
    }

    void feed(const std::string& trackId, const AccessUnitPtr& unit)
    {
        for (const auto& sink : sinks(trackId))
        {
            sink->onAccessUnit(unit);
        }
    }

    void breakOff()
    {
        for (const char* track : {"trackID=0", "trackID=1"})
        {
            for (const auto& sink : sinks(track))
            {
                sink->onDiscontinuity();
            }
        }
    }

    std::vector<std::shared_ptr<AccessUnitSink>> sinks(const std::string& trackId)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        std::vector<std::shared_ptr<AccessUnitSink>> found;
        for (const Tap& tap : taps_)
        {
            if (tap.trackId == trackId)
            {
                found.push_back(tap.sink);
            }
        }
        return found;
    }

    std::atomic<int> viewers{0};
    std::atomic<int> acquired{0};
    std::atomic<int> keyRequests{0};
    std::atomic<int> attached{0};
    std::atomic<int> detached{0};

private:
    std::mutex mutex_;
    std::vector<Tap> taps_;
};

/// Streams of camera 1; stream 0 exists.
class FakeDirectory : public StreamDirectory
{
public:
    explicit FakeDirectory(std::shared_ptr<StreamSource> source) : source_(std::move(source)) {}

    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && streamId == 0 ? source_ : nullptr;
    }

private:
    const std::shared_ptr<StreamSource> source_;
};

}  // namespace test
}  // namespace refhost
