#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "refhost/media/BackChannel.h"
#include "refhost/media/StreamSource.h"
#include "tests/SampleTracks.h"
#include "tests/refhost/live/LiveFakes.h"

namespace refhost
{
namespace test
{

/// A stream with a video and an audio track, described by the test.
class HandFedStream : public FakeSource
{
public:
    Description describe(std::vector<SubMediaInfo>& tracks) override
    {
        ++described;
        const Description now = description.load();
        if (now == Description::ready)
        {
            tracks = {SampleTracks::video(), SampleTracks::audio()};
        }
        return now;
    }

    std::atomic<Description> description{Description::ready};
    std::atomic<int> described{0};
};

/// Camera 1 with streams 0 and 1.
class HandFedStreams : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && (streamId == 0 || streamId == 1) ? streams[streamId] : nullptr;
    }

    bool describeBackChannel(int cameraId, SubMediaInfo& out) override
    {
        const auto track = cameraId == 1 ? backChannelOf(talkBack) : std::nullopt;
        out = track ? *track : out;
        return track.has_value();
    }

    std::optional<Codec> talkBack;  ///< codec; set before the server starts
    std::shared_ptr<HandFedStream> streams[2] = {std::make_shared<HandFedStream>(),
                                                 std::make_shared<HandFedStream>()};
};

}  // namespace test
}  // namespace refhost
