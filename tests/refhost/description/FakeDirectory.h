#pragma once

#include <memory>
#include <vector>

#include "refhost/media/StreamSource.h"

namespace refhost
{
namespace test
{

/// Returns scripted results.
class FakeStream : public StreamSource
{
public:
    Description describe(std::vector<SubMediaInfo>& out) override
    {
        if (description == Description::ready)
        {
            out = tracks;
        }
        return description;
    }
    void attach(const std::string&, int, std::shared_ptr<AccessUnitSink>) override {}
    void detach(const AccessUnitSink*) override {}
    void attachMedia(std::shared_ptr<EncodedUnitSink>) override {}
    void detachMedia(const EncodedUnitSink*) override {}
    void acquire() override {}
    void release() override {}
    void requestKeyFrame() override {}

    Description description = Description::ready;
    std::vector<SubMediaInfo> tracks;
};

/// Camera 3 with its stream 1.
class FakeDirectory : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 3 && streamId == 1 ? stream : nullptr;
    }

    bool describeBackChannel(int cameraId, SubMediaInfo& track) override
    {
        if (cameraId != 3 || !talkBack)
        {
            return false;
        }
        track = SubMediaInfo();
        track.trackId = "trackID=talk";
        track.setAudioBackInfoFlag(true);
        return true;
    }

    bool talkBack = false;
    std::shared_ptr<FakeStream> stream = std::make_shared<FakeStream>();
};

}  // namespace test
}  // namespace refhost
