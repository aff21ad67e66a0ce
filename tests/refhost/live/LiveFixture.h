#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "tests/refhost/live/LiveFakes.h"

namespace refhost
{
namespace test
{

/// A dispatcher over a camera with 25 frames and 50 blocks of audio a second, GOPs of 25 frames.
class LiveFixture : public testing::Test
{
protected:
    static constexpr const char* video = "trackID=0";
    static constexpr const char* audio = "trackID=1";
    static constexpr const char* stream = "1/0";
    static constexpr int frameMs = 40;
    static constexpr int blockMs = 20;
    static constexpr int gop = 25;

    LiveFixture()
    {
        settings.clock = &clock;
        settings.maxAudioWait = std::chrono::milliseconds(2 * blockMs);
        Device::setStreams(std::make_shared<FakeDirectory>(source));
        make();
    }

    ~LiveFixture() override
    {
        Device::setStreams(nullptr);
    }

    /// Makes the dispatcher again with the present settings.
    void make()
    {
        dispatcher = std::make_unique<LiveDispatcher>(settings);
    }

    static SubMediaInfo trackInfo(const std::string& track)
    {
        SubMediaInfo info;
        info.trackId = track;
        info.mediaType = track == video ? "video" : "audio";
        info.encodingName = track == video ? "H264" : "PCMU";
        info.payloadType = track == video ? 96 : 0;
        info.clockRate = track == video ? 90000 : 8000;
        return info;
    }

    /// Sets a track of a session up. \returns what its client sees
    std::shared_ptr<Wire> setUp(const std::string& session, const std::string& track, unsigned pace = 0)
    {
        auto wire = std::make_shared<Wire>();
        wire->traits.maxCatchUpUnits = pace;
        SafePointer<FakeTransport> transport(new FakeTransport(wire));
        transports.erase(session + track);
        transports.emplace(session + track, transport);
        EXPECT_EQ(0, dispatcher->initTrack(stream, session, track, trackInfo(track), 1364));
        EXPECT_EQ(0, dispatcher->addConnection(stream, session, track, transport));
        return wire;
    }

    SafePointer<FakeTransport>& transport(const std::string& session, const std::string& track)
    {
        return transports.at(session + track);
    }

    int play(const std::string& session, const std::string& track)
    {
        return dispatcher->play(stream, session, track);
    }

    int pause(const std::string& session, const std::string& track)
    {
        return dispatcher->pause(stream, session, track);
    }

    int remove(const std::string& session, const std::string& track)
    {
        return dispatcher->remove(stream, session, track);
    }

    RTPPacketInfo rtpInfo(const std::string& session, const std::string& track)
    {
        RTPPacketInfo info;
        EXPECT_TRUE(dispatcher->firstPacketOfPlay(session, track, info));
        return info;
    }

    TrackStatistics statistics(const std::string& session, const std::string& track)
    {
        TrackStatistics found;
        EXPECT_TRUE(dispatcher->statistics(session, track, found));
        return found;
    }

    /// Lets one frame's time pass: two blocks of audio, then the frame.
    void tick()
    {
        tickAudio();
        tickAudio();
        tickVideo();
    }

    void ticks(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            tick();
        }
    }

    /// One frame; a key frame first and after every 24 others.
    AccessUnitPtr tickVideo()
    {
        const bool key = frame % gop == 0;
        auto unit = makeUnit(videoBase + static_cast<std::uint32_t>(frame) * 3600U, nsOf(clock.now()), key,
                             key ? 9 : 3);
        ++frame;
        source->feed(video, unit);
        return unit;
    }

    AccessUnitPtr tickAudio()
    {
        clock.advance(std::chrono::milliseconds(blockMs));
        auto unit = makeUnit(audioBase + static_cast<std::uint32_t>(block) * 160U, nsOf(clock.now()), true, 1,
                             160, 160);
        ++block;
        source->feed(audio, unit);
        return unit;
    }

    /// The source stops and starts again with other timestamps.
    void restartSource()
    {
        source->breakOff();
        frame = 0;
        block = 0;
        videoBase += 123'456'789U;
        audioBase += 987'654'321U;
    }

    ManualClock clock;
    LiveSettings settings;
    std::shared_ptr<FakeSource> source = std::make_shared<FakeSource>();
    std::unique_ptr<LiveDispatcher> dispatcher;
    std::map<std::string, SafePointer<FakeTransport>> transports;
    int frame = 0;
    int block = 0;
    std::uint32_t videoBase = 1000;
    std::uint32_t audioBase = 0xffffff00U;
};

}  // namespace test
}  // namespace refhost
