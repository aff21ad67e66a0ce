#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/base/ChangeSignal.h"
#include "refhost/capture/CameraStreams.h"
#include "tests/refhost/capture/CollectingSink.h"

namespace refhost
{

/// One camera with one small stream, and means to wait for its description.
class StreamFixture : public testing::Test
{
protected:
    StreamFixture()
    {
        stream.width = 320;
        stream.height = 180;
        stream.bitRate = 400;
        stream.gop = 10;
        options.linger = std::chrono::milliseconds(50);
        options.failureHold = std::chrono::seconds(5);
        options.restartPauses = {std::chrono::milliseconds(20)};
    }

    ~StreamFixture() override
    {
        // Even if a test ended the streams: the function refers to this object.
        ChangeSignal::instance().unsubscribe(subscription);
    }

    CameraStream& open()
    {
        ServerConfig config;
        CameraConfig camera;
        camera.name = "test";
        camera.away = away;
        camera.streams.push_back(stream);
        config.cameras.push_back(camera);
        streams = std::make_unique<CameraStreams>(config, options);
        // A test may open several streams, one after the other.
        ChangeSignal::instance().unsubscribe(subscription);
        subscription = ChangeSignal::instance().subscribe(
            [this]
            {
                const std::lock_guard<std::mutex> guard(mutex);
                ++changes;
                changed.notify_all();
            });
        source = std::static_pointer_cast<CameraStream>(streams->find(1, 0));
        return *source;
    }

    /// Requests the description until it is ready or has failed.
    StreamSource::Description describe()
    {
        for (;;)
        {
            int seen = 0;
            {
                const std::lock_guard<std::mutex> guard(mutex);
                seen = changes;
            }
            const StreamSource::Description result = source->describe(tracks);
            if (result != StreamSource::Description::starting)
            {
                return result;
            }
            std::unique_lock<std::mutex> guard(mutex);
            if (!changed.wait_for(guard, std::chrono::seconds(20), [&] { return changes > seen; }))
            {
                return result;
            }
        }
    }

    /// Uses a GStreamer launch line as the stream's source.
    void useLaunchLine(const std::string& line)
    {
        stream.source.kind = SourceConfig::Kind::launch;
        stream.source.location = line;
    }

    std::shared_ptr<CollectingSink> attach(const std::string& trackId, int payloadSize = 1364)
    {
        auto sink = std::make_shared<CollectingSink>();
        source->attach(trackId, payloadSize, sink);
        return sink;
    }

    /// As attach(), and adds a viewer.
    std::shared_ptr<CollectingSink> watch(const std::string& trackId)
    {
        auto sink = attach(trackId);
        source->acquire();
        return sink;
    }

    StreamConfig stream;
    std::string away = "wait";
    CameraStream::Options options;
    std::mutex mutex;
    std::condition_variable changed;
    int changes = 0;
    int subscription = 0;
    std::vector<SubMediaInfo> tracks;
    std::shared_ptr<CameraStream> source;
    std::unique_ptr<CameraStreams> streams;
};

}  // namespace refhost
