#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/base/HostStatus.h"
#include "refhost/playback/PlaybackSession.h"
#include "refhost/playback/PlaybackSource.h"
#include "refhost/threads/WorkPool.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{

constexpr Duration second = std::chrono::seconds(1);

/// Recorded media that a test scripts: 25 frames and 50 blocks of audio a second, a key frame every second.
struct FakeRecordings
{
    static constexpr Duration frameLength = std::chrono::milliseconds(40);
    static constexpr Duration blockLength = std::chrono::milliseconds(20);

    struct Stretch
    {
        WallTime begin;
        WallTime end;
    };

    std::mutex mutex;
    std::vector<Stretch> stretches;
    bool growing = false;  ///< more may come after the last stretch
    int opens = 0;
    int reads = 0;
    std::vector<PlaybackSource::Request> requests;

    void set(std::vector<Stretch> all)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        stretches = std::move(all);
    }
};

/// Reads FakeRecordings.
class FakeSource : public PlaybackSource
{
public:
    explicit FakeSource(std::shared_ptr<FakeRecordings> recordings) : recordings_(std::move(recordings)) {}

    bool open(const Request& request) override
    {
        const std::lock_guard<std::mutex> guard(recordings_->mutex);
        ++recordings_->opens;
        recordings_->requests.push_back(request);
        if (request.backwards)
        {
            return openBackwards(request);
        }
        for (std::size_t i = 0; i < recordings_->stretches.size(); ++i)
        {
            const auto& stretch = recordings_->stretches[i];
            if (stretch.end <= request.from)
            {
                continue;
            }
            const Duration into = std::max(request.from - stretch.begin, Duration::zero());
            const WallTime begin = stretch.begin + into / second * second;
            if (begin >= request.end)
            {
                return false;
            }
            request_ = request;
            stretch_ = i;
            ++range_;
            nextFrame_ = nextBlock_ = begin;
            return true;
        }
        return false;
    }

    Result read(PlaybackUnit& out) override
    {
        const std::lock_guard<std::mutex> guard(recordings_->mutex);
        ++recordings_->reads;
        if (request_.backwards)
        {
            return readBackwards(out);
        }
        for (; stretch_ < recordings_->stretches.size(); ++stretch_, ++range_)
        {
            const auto& stretch = recordings_->stretches[stretch_];
            nextFrame_ = std::max(nextFrame_, stretch.begin);
            nextBlock_ = std::max(nextBlock_, stretch.begin);
            const WallTime end = std::min(stretch.end, request_.end);
            const bool audio = request_.audio.payloadSize > 0;
            const bool video = request_.video.payloadSize > 0;
            if (video && nextFrame_ < end && (!audio || nextFrame_ <= nextBlock_))
            {
                const Duration step = request_.keyFramesOnly ? second : FakeRecordings::frameLength;
                out = make(true, nextFrame_, (nextFrame_ - stretch.begin) % second == Duration::zero(), step);
                nextFrame_ += step;
                out.last = nextFrame_ >= end;
                return Result::unit;
            }
            if (audio && nextBlock_ < end)
            {
                out = make(false, nextBlock_, true, FakeRecordings::blockLength);
                nextBlock_ += FakeRecordings::blockLength;
                out.last = nextBlock_ >= end;
                return Result::unit;
            }
            if (end == request_.end)
            {
                break;
            }
            if (recordings_->growing && stretch_ + 1 == recordings_->stretches.size())
            {
                return Result::later;
            }
        }
        return Result::end;
    }

private:
    bool openBackwards(const Request& request)
    {
        for (std::size_t i = recordings_->stretches.size(); i-- > 0;)
        {
            const auto& stretch = recordings_->stretches[i];
            if (stretch.begin <= request.from)
            {
                const WallTime last = std::min(request.from, stretch.end - Duration(1));
                nextFrame_ = stretch.begin + (last - stretch.begin) / second * second;
                request_ = request;
                stretch_ = i;
                ++range_;
                return nextFrame_ >= request.end;
            }
        }
        return false;
    }

    Result readBackwards(PlaybackUnit& out)
    {
        if (nextFrame_ < request_.end)
        {
            return Result::end;
        }
        out = make(true, nextFrame_, true, second);
        out.media = out.due = request_.mirrored(out.wall);
        nextFrame_ -= second;
        if (nextFrame_ < recordings_->stretches[stretch_].begin && stretch_ > 0)
        {
            const auto& before = recordings_->stretches[--stretch_];
            nextFrame_ = before.begin + (before.end - Duration(1) - before.begin) / second * second;
            ++range_;
            out.last = true;
        }
        out.last = out.last || nextFrame_ < request_.end;
        return Result::unit;
    }

    PlaybackUnit make(bool video, WallTime media, bool key, Duration duration) const
    {
        PlaybackUnit unit;
        unit.unit =
            makeUnit(7, media.time_since_epoch().count(), key, video ? 3 : 1, 1364, video ? 100 : 160);
        unit.video = video;
        unit.key = key;
        unit.wall = unit.media = unit.due = media;
        unit.duration = duration;
        unit.range = range_;
        return unit;
    }

    const std::shared_ptr<FakeRecordings> recordings_;
    Request request_;
    std::size_t stretch_ = 0;
    std::uint32_t range_ = 0;
    WallTime nextFrame_;
    WallTime nextBlock_;
};

/// A session on a recording of 20 seconds with the test's thread as its worker.
class PlaybackFixture : public testing::Test
{
protected:
    static constexpr const char* video = "trackID=0";
    static constexpr const char* audio = "trackID=1";

    PlaybackFixture()
    {
        settings.clock = &clock;
        recordings->set({{at(0), at(20)}});
        make(0, 20);
    }

    /// Date of a second of the recording.
    static WallTime at(double seconds)
    {
        return wallTimeOfUnix(1'600'000'000) + durationOf(std::chrono::duration<double>(seconds));
    }

    /// Makes the session again; position 0 is its begin.
    void make(double begin, double end)
    {
        make(begin, end, begin);
    }

    /// \param start  date of position 0
    void make(double begin, double end, double start)
    {
        session = std::make_shared<PlaybackSession>(PlaybackSession::Interval{at(begin), at(end), at(start)},
                                                    std::make_unique<FakeSource>(recordings), pool, settings);
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

    /// Sets a track up. \returns what its client receives
    std::shared_ptr<Wire> setUp(const std::string& track)
    {
        auto wire = std::make_shared<Wire>();
        SafePointer<FakeTransport> transport(new FakeTransport(wire));
        transports.erase(track);
        transports.emplace(track, transport);
        session->addTrack(trackInfo(track), 1364);
        EXPECT_EQ(0, session->connect(track, transport));
        return wire;
    }

    /// Plays a track as the RTSP server does: again after its position was found.
    int play(const std::string& track)
    {
        int status = session->play(track);
        for (int i = 0; i < 10 && status == hostStreamNotReady; ++i)
        {
            runWorkers();
            status = session->play(track);
        }
        return status;
    }

    int playFrom(const std::string& track, double begin, double end = 20, int kind = 0)
    {
        EXPECT_EQ(0, session->setRange(track, begin, end, kind, true));
        return play(track);
    }

    void runWorkers()
    {
        ASSERT_LT(pool.runDue(1000), 1000U) << "the worker never gets idle";
    }

    /// Advances the clock in small steps and runs the worker.
    void pass(std::int64_t ms)
    {
        runWorkers();
        for (std::int64_t passed = 0; passed < ms; passed += 5)
        {
            clock.advance(std::chrono::milliseconds(5));
            runWorkers();
        }
    }

    static std::vector<double> secondsOf(Wire& wire)
    {
        std::vector<double> seconds;
        for (const AccessUnitPtr& unit : wire.units())
        {
            seconds.push_back(
                refhost::secondsOf(unit->captureTime.time_since_epoch() - at(0).time_since_epoch()));
        }
        return seconds;
    }

    static bool sentBye(Wire& wire)
    {
        const std::lock_guard<std::mutex> guard(wire.mutex);
        const auto isBye = [](const std::vector<std::uint8_t>& packet)
        {
            constexpr std::uint8_t bye = 203;
            for (std::size_t i = 0; i + 4 <= packet.size();
                 i += std::size_t{4} * (packet[i + 2] * 256U + packet[i + 3] + 1))
            {
                if (packet[i + 1] == bye)
                {
                    return true;
                }
            }
            return false;
        };
        return std::any_of(wire.rtcp.begin(), wire.rtcp.end(), isBye);
    }

    ManualClock clock;
    PlaybackSettings settings;
    WorkPool pool{{0, Duration::zero(), "playback", &clock}};
    std::shared_ptr<FakeRecordings> recordings = std::make_shared<FakeRecordings>();
    std::shared_ptr<PlaybackSession> session;
    std::map<std::string, SafePointer<FakeTransport>> transports;
};

}  // namespace test
}  // namespace refhost
