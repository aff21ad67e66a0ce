// The library's playback session, driven as a host drives it, on this host's own dispatcher and real recorded media.
#include "playback/OVPlayBack.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hostapi/description/MediaInfoTool.h"
#include "refhost/base/ChangeSignal.h"
#include "refhost/base/HostStatus.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingIndex.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/playback/RecordedMedia.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

/// A transport to a client that notifies its waiting test of each packet.
class WatchedTransport : public FakeTransport
{
public:
    /// The events of all transports of a test.
    struct Events
    {
        std::mutex mutex;
        std::condition_variable happened;
        std::size_t count = 0;

        void notify()
        {
            const std::lock_guard<std::mutex> guard(mutex);
            ++count;
            happened.notify_all();
        }

        std::size_t soFar()
        {
            const std::lock_guard<std::mutex> guard(mutex);
            return count;
        }

        /// \param condition  takes no lock that is held during notify()
        /// \returns false when it took longer than ten seconds
        bool waitFor(const std::function<bool()>& condition)
        {
            std::unique_lock<std::mutex> lock(mutex);
            return happened.wait_for(lock, std::chrono::seconds(10), condition);
        }
    };

    WatchedTransport(std::shared_ptr<Wire> wire, std::shared_ptr<Events> events)
        : FakeTransport(std::move(wire)), events_(std::move(events))
    {
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                    bool more) override
    {
        const SendResult result = FakeTransport::send(unit, firstPacket, header, more);
        events_->notify();
        return result;
    }

    void sendRtcp(const std::uint8_t* data, std::size_t size) override
    {
        FakeTransport::sendRtcp(data, size);
        events_->notify();
    }

private:
    const std::shared_ptr<Events> events_;
};

bool sentBye(Wire& wire)
{
    constexpr std::uint8_t bye = 203;
    const std::lock_guard<std::mutex> guard(wire.mutex);
    for (const std::vector<std::uint8_t>& packet : wire.rtcp)
    {
        for (std::size_t at = 0; at + 4 <= packet.size();
             at += std::size_t{4} * (packet[at + 2] * 256U + packet[at + 3] + 1))
        {
            if (packet[at + 1] == bye)
            {
                return true;
            }
        }
    }
    return false;
}

/// Two segments of two seconds each, one behind the other.
class DirectPlayBack : public RecordedMediaTest
{
protected:
    static constexpr long beginTime = 1'600'000'000;
    static constexpr const char* video = "trackID=0";
    static constexpr const char* audio = "trackID=1";
    const std::string id = "session";

    /// A session and what its client sees.
    struct Viewer
    {
        std::unique_ptr<OVPlayBack> session = std::make_unique<OVPlayBack>();
        std::shared_ptr<Wire> video = std::make_shared<Wire>();
        std::shared_ptr<Wire> audio = std::make_shared<Wire>();
        SafePointer<WatchedTransport> videoTransport;

        bool ended() const
        {
            return sentBye(*video) && sentBye(*audio);
        }
    };

    void SetUp() override
    {
        std::string error;
        index_ = RecordingIndex::open(directory_, error);
        ASSERT_TRUE(index_) << error;
        ASSERT_TRUE(index_->add(addSegment(0, 2)));
        ASSERT_TRUE(index_->add(addSegment(2, 2)));
        Device::setRecordings(index_);
        changes_ = ChangeSignal::instance().subscribe([events = events_] { events->notify(); });
    }

    void TearDown() override
    {
        ChangeSignal::instance().unsubscribe(changes_);
        Device::setRecordings(nullptr);
    }

    /// Asks again whenever something changed, as long as the host is not ready.
    int patiently(const std::function<int()>& ask) const
    {
        for (;;)
        {
            const std::size_t before = events_->soFar();
            const int status = ask();
            if (status != hostStreamNotReady || !events_->waitFor([&] { return events_->count != before; }))
            {
                return status;
            }
        }
    }

    MediaInfo describe(long begin, long end) const
    {
        RecordInfo record;
        record.setCameraId(1);
        record.setRecordBeginTime(static_cast<unsigned long>(begin));
        record.setRecordEndTime(static_cast<unsigned long>(end));
        MediaInfoTool tool;
        MediaInfo info;
        EXPECT_EQ(0, patiently([&] { return tool.createPlaybackMediaInfo(record, info); }));
        return info;
    }

    SafePointer<WatchedTransport> transport(const std::shared_ptr<Wire>& wire) const
    {
        return SafePointer<WatchedTransport>(new WatchedTransport(wire, events_));
    }

    /// A viewer of seconds of the recording, with both tracks set up.
    Viewer viewer(long begin, long end)
    {
        Viewer made;
        EXPECT_EQ(0, made.session->init(DeviceInfoEx(), DeviceExAbility(), 1, 1, beginTime + begin,
                                        beginTime + end));
        made.session->setMediaInfo(describe(beginTime + begin, beginTime + end));
        made.videoTransport = transport(made.video);
        EXPECT_EQ(0, made.session->setup(id, video, made.videoTransport));
        EXPECT_EQ(0, made.session->setup(id, audio, transport(made.audio)));
        return made;
    }

    int play(Viewer& viewer, const char* track) const
    {
        return patiently([&] { return viewer.session->play(id, track); });
    }

    void playBoth(Viewer& viewer) const
    {
        EXPECT_EQ(0, play(viewer, video));
        EXPECT_EQ(0, play(viewer, audio));
    }

    /// Seconds of the recording at which units were recorded.
    static std::vector<double> secondsOf(Wire& wire)
    {
        std::vector<double> seconds;
        for (const AccessUnitPtr& unit : wire.units())
        {
            seconds.push_back(secondsAt(WallTime(unit->captureTime.time_since_epoch())));
        }
        return seconds;
    }

    /// Every frame from `begin` to `end` once and in its order, without a break in sequence or time.
    static void expectFrames(Wire& wire, double begin, double end)
    {
        const std::vector<double> seconds = secondsOf(wire);
        ASSERT_EQ(static_cast<std::size_t>(std::lround((end - begin) * 25)), seconds.size());
        for (std::size_t i = 0; i < seconds.size(); ++i)
        {
            ASSERT_NEAR(begin + static_cast<double>(i) * 0.04, seconds[i], 0.002) << i;
        }
        EXPECT_TRUE(wire.contiguous());
        const std::lock_guard<std::mutex> guard(wire.mutex);
        for (std::size_t i = 1; i < wire.packets.size(); ++i)
        {
            const std::uint32_t step = wire.packets[i].timestamp - wire.packets[i - 1].timestamp;
            ASSERT_NEAR(wire.packets[i].index == 0 ? 3600 : 0, static_cast<double>(step), 91) << i;
        }
    }

    std::shared_ptr<WatchedTransport::Events> events_ = std::make_shared<WatchedTransport::Events>();

private:
    std::shared_ptr<RecordingIndex> index_;
    int changes_ = 0;
};

}  // namespace

TEST_F(DirectPlayBack, PlaysEveryFrameAcrossASegmentBoundaryAndSendsBye)
{
    Viewer viewer = this->viewer(0, 4);
    EXPECT_EQ(0, viewer.session->setSpeed(id, video, 1, 32));
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.ended(); }));
    expectFrames(*viewer.video, 0, 4);
    EXPECT_TRUE(viewer.video->units().front()->keyFrame);
    EXPECT_EQ(200u, viewer.audio->units().size());
    EXPECT_TRUE(viewer.audio->contiguous());
    double start = -1;
    double end = -1;
    EXPECT_EQ(0, viewer.session->getCurPlayRange(id, video, start, end));
    EXPECT_NEAR(0, start, 0.001);
    EXPECT_NEAR(4, end, 0.001);
}

TEST_F(DirectPlayBack, PacketsCarryTheReportedSsrcAndAtMostThePayloadSize)
{
    Viewer viewer = this->viewer(0, 1);
    int ssrc = 0;
    EXPECT_EQ(0, viewer.session->getTrackSSRC(id, video, ssrc));
    viewer.session->setSpeed(id, video, 1, 32);
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.ended(); }));
    const std::lock_guard<std::mutex> guard(viewer.video->mutex);
    for (const SentPacket& packet : viewer.video->packets)
    {
        ASSERT_EQ(static_cast<std::uint32_t>(ssrc), packet.ssrc);
        ASSERT_LE(packet.unit->packets[packet.index].size, 1364 + AccessUnit::rtpHeaderSize);
    }
}

TEST_F(DirectPlayBack, ResumesAfterAPauseWithoutLosingAFrame)
{
    Viewer viewer = this->viewer(0, 4);
    viewer.session->setSpeed(id, video, 1, 4);
    playBoth(viewer);
    for (const std::size_t count : {10U, 40U})
    {
        ASSERT_TRUE(events_->waitFor([&] { return viewer.video->units().size() >= count; }));
        EXPECT_EQ(0, viewer.session->pause(id, video));
        EXPECT_EQ(0, viewer.session->pause(id, audio));
        EXPECT_LT(viewer.video->units().size(), 100u);
        playBoth(viewer);
    }
    ASSERT_TRUE(events_->waitFor([&] { return viewer.ended(); }));
    expectFrames(*viewer.video, 0, 4);
    EXPECT_EQ(200u, viewer.audio->units().size());
}

TEST_F(DirectPlayBack, PausedTrackSendsNothingWhileTheOtherPlaysToTheEnd)
{
    Viewer viewer = this->viewer(0, 4);
    viewer.session->setSpeed(id, video, 1, 8);
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.video->units().size() >= 5; }));
    EXPECT_EQ(0, viewer.session->pause(id, video));
    const std::size_t sent = viewer.video->units().size();
    ASSERT_TRUE(events_->waitFor([&] { return sentBye(*viewer.audio); }));
    EXPECT_EQ(sent, viewer.video->units().size());
    EXPECT_LT(sent, 100u);
}

TEST_F(DirectPlayBack, FurtherPlayOfAPlayingTrackChangesNothing)
{
    Viewer viewer = this->viewer(0, 2);
    viewer.session->setSpeed(id, video, 1, 32);
    playBoth(viewer);
    EXPECT_EQ(0, viewer.session->play(id, video));
    EXPECT_EQ(0, viewer.session->play(id, audio));
    ASSERT_TRUE(events_->waitFor([&] { return viewer.ended(); }));
    expectFrames(*viewer.video, 0, 2);
}

TEST_F(DirectPlayBack, StopOfOneTrackEndsItAndLeavesTheOtherPlaying)
{
    Viewer viewer = this->viewer(0, 4);
    viewer.session->setSpeed(id, video, 1, 8);
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.video->units().size() >= 5; }));
    EXPECT_EQ(0, viewer.session->stop(id, video));
    const std::size_t sent = viewer.video->units().size();
    EXPECT_TRUE(sentBye(*viewer.video));
    ASSERT_TRUE(events_->waitFor([&] { return sentBye(*viewer.audio); }));
    EXPECT_EQ(200u, viewer.audio->units().size());
    EXPECT_EQ(sent, viewer.video->units().size()) << "nothing left after stop() had returned";
    EXPECT_LT(sent, 100u);
    EXPECT_EQ(hostTrackUnknown, viewer.session->play(id, video));
}

TEST_F(DirectPlayBack, IntervalThatStartsInsideAGopPlaysFromItsKeyFrame)
{
    Viewer viewer = this->viewer(1, 3);
    viewer.session->setSpeed(id, video, 1, 32);
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.ended(); }));
    expectFrames(*viewer.video, 1, 3);
}

TEST_F(DirectPlayBack, IntervalWithoutRecordedMediaCannotBePlayed)
{
    OVPlayBack session;
    ASSERT_EQ(0, session.init(DeviceInfoEx(), DeviceExAbility(), 1, 1, beginTime + 100, beginTime + 200));
    session.setMediaInfo(describe(beginTime, beginTime + 4));
    const auto wire = std::make_shared<Wire>();
    ASSERT_EQ(0, session.setup(id, video, transport(wire)));
    for (int pass = 0; pass < 2; ++pass)
    {
        EXPECT_EQ(hostRangeInvalid, patiently([&] { return session.play(id, video); }));
        EXPECT_EQ(0, session.pause(id, video)) << "it does not play";
    }
    EXPECT_TRUE(wire->units().empty());
}

TEST_F(DirectPlayBack, UnknownTrackIsRefusedByTheDispatcher)
{
    Viewer viewer = this->viewer(0, 1);
    EXPECT_EQ(hostTrackUnknown, viewer.session->play(id, "trackID=2"));
    EXPECT_EQ(-8, viewer.session->stop(id, "trackID=2"));
}

TEST_F(DirectPlayBack, ReportsWhetherTheClientIsConnected)
{
    Viewer viewer = this->viewer(0, 1);
    bool connected = false;
    EXPECT_EQ(0, viewer.session->getConnectionState(id, video, connected));
    EXPECT_TRUE(connected);
    viewer.videoTransport->close();
    EXPECT_EQ(0, viewer.session->getConnectionState(id, video, connected));
    EXPECT_FALSE(connected);
}

TEST_F(DirectPlayBack, EndWhilePlayingReleasesEverything)
{
    Viewer viewer = this->viewer(0, 4);
    playBoth(viewer);
    ASSERT_TRUE(events_->waitFor([&] { return viewer.video->units().size() >= 5; }));
    viewer.session.reset();
    EXPECT_LT(viewer.video->units().size(), 100u);
    EXPECT_TRUE(sentBye(*viewer.video));
    EXPECT_TRUE(sentBye(*viewer.audio));
}

TEST_F(DirectPlayBack, TwentySessionsPlayTheirOwnIntervalsAtOnce)
{
    std::vector<Viewer> viewers;
    for (int i = 0; i < 20; ++i)
    {
        viewers.push_back(viewer(i % 4, i % 4 + 1 + i % (4 - i % 4)));
        viewers.back().session->setSpeed(id, video, 1, 8);
    }
    for (Viewer& viewer : viewers)
    {
        playBoth(viewer);
    }
    for (std::size_t i = 0; i < viewers.size(); ++i)
    {
        SCOPED_TRACE(i);
        ASSERT_TRUE(events_->waitFor([&] { return viewers[i].ended(); }));
        const double begin = static_cast<double>(i % 4);
        expectFrames(*viewers[i].video, begin, begin + 1 + static_cast<double>(i % (4 - i % 4)));
    }
}

}  // namespace test
}  // namespace refhost
