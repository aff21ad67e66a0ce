#include "refhost/capture/CameraStream.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <set>
#include <thread>

#include "refhost/base/HostClock.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/capture/ScriptedRun.h"
#include "tests/refhost/capture/StreamFixture.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::StartsWith;
using Description = StreamSource::Description;

constexpr std::size_t h264StapA = 24;

class CameraStreamTest : public StreamFixture
{
protected:
    static std::uint16_t sequenceOf(const AccessUnit& unit, std::size_t packet)
    {
        const std::uint8_t* header = &unit.bytes[unit.packets[packet].offset];
        return static_cast<std::uint16_t>(header[2] << 8 | header[3]);
    }

    static bool hasMarker(const AccessUnit& unit, std::size_t packet)
    {
        return (unit.bytes[unit.packets[packet].offset + 1] & 0x80) != 0;
    }

    static std::size_t largestPayload(const std::vector<AccessUnitPtr>& units)
    {
        std::size_t largest = 0;
        for (const AccessUnitPtr& unit : units)
        {
            for (const AccessUnit::Packet& packet : unit->packets)
            {
                largest = std::max<std::size_t>(largest, packet.size - AccessUnit::rtpHeaderSize);
            }
        }
        return largest;
    }
};

/// Makes runs of these outcomes, one after the other; the last one repeats.
SourceRun::Factory scripted(std::vector<ScriptedRun::Outcome> outcomes)
{
    return [outcomes = std::move(outcomes),
            next = std::make_shared<std::atomic<std::size_t>>(0)](SourceRun::Setup setup)
    {
        const std::size_t index = std::min(next->fetch_add(1), outcomes.size() - 1);
        return std::make_unique<ScriptedRun>(std::move(setup), outcomes[index]);
    };
}

TEST_F(CameraStreamTest, CameraThatIsBusyAfterAChangeOfMeansIsReadAllTheSame)
{
    options.makeRun = scripted({{"has to be decoded", true}, {"503 Service Unavailable"}, {}});
    open();
    EXPECT_EQ(describe(), Description::ready);
    EXPECT_EQ(source->starts(), 3);
}

TEST_F(CameraStreamTest, MeansThatKeepFailingFailTheDescription)
{
    options.makeRun = scripted({{"has to be decoded", true}, {"404 Not Found"}});
    open();
    EXPECT_EQ(describe(), Description::failed);
    EXPECT_EQ(source->starts(), 2 + static_cast<int>(SourceAttempts::maxRepeats));
}

TEST_F(CameraStreamTest, FailureIsReportedAtOnceWhereMeansDidNotChange)
{
    options.makeRun = scripted({{"404 Not Found"}});
    open();
    EXPECT_EQ(describe(), Description::failed);
    EXPECT_EQ(source->starts(), 1);
}

class CameraStreamStates : public CameraStreamTest
{
protected:
    CameraStreamStates()
    {
        options.states = &states;
        options.frozenAfter = std::chrono::milliseconds(40);
    }
    ~CameraStreamStates() override
    {
        source = nullptr;
        streams = nullptr;
    }

    template <class Condition>
    static bool eventually(const Condition& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition())
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    bool waitFor(CameraState state) const
    {
        return eventually([this, state] { return states.find(1, 0)->state == state; });
    }

    CameraStates states;
    std::shared_ptr<std::atomic<std::uint64_t>> packets = std::make_shared<std::atomic<std::uint64_t>>(0);
};

TEST_F(CameraStreamStates, SourceRunsOnceFramesComeAndFreezesWithoutThem)
{
    options.makeRun = scripted({{"", false, packets}});
    open();
    source->acquire();
    EXPECT_TRUE(waitFor(CameraState::starting));
    *packets = 1;
    EXPECT_TRUE(waitFor(CameraState::running));
    EXPECT_TRUE(waitFor(CameraState::frozen));
    *packets = 2;
    EXPECT_TRUE(waitFor(CameraState::running));
    source->release();
    EXPECT_TRUE(waitFor(CameraState::idle));
}

TEST_F(CameraStreamStates, ViewersOfAFrozenCameraWaitUnlessTheyAreToEnd)
{
    options.makeRun = scripted({{"", false, packets}});
    open();
    source->acquire();
    EXPECT_EQ(describe(), Description::ready);
    *packets = 1;
    EXPECT_TRUE(waitFor(CameraState::frozen));
    EXPECT_FALSE(source->isAway());
    EXPECT_EQ(source->describe(tracks), Description::ready);
}

TEST_F(CameraStreamStates, FrozenCameraThatEndsItsViewersIsAwayUntilFramesCome)
{
    away = "end";
    options.makeRun = scripted({{"", false, packets}});
    open();
    source->acquire();
    EXPECT_EQ(describe(), Description::ready);
    EXPECT_FALSE(source->isAway());
    *packets = 1;
    EXPECT_TRUE(waitFor(CameraState::frozen));
    EXPECT_TRUE(eventually([this] { return source->isAway(); }));
    EXPECT_EQ(source->describe(tracks), Description::starting);
    EXPECT_TRUE(eventually(
        [this]
        {
            ++*packets;
            return source->describe(tracks) == Description::ready && !source->isAway();
        }));
    EXPECT_EQ(source->starts(), 1);
}

TEST_F(CameraStreamStates, CameraThatFailsAndEndsItsViewersHasNoDescriptionForNewcomers)
{
    away = "end";
    *packets = 1;
    options.maxSilence = std::chrono::milliseconds(100);
    options.makeRun =
        scripted({{"", false, packets}, {"gone", false, nullptr, SourceFailure::Cause::unreachable}});
    open();
    EXPECT_EQ(describe(), Description::ready);
    source->acquire();
    EXPECT_TRUE(waitFor(CameraState::unreachable));
    EXPECT_TRUE(eventually([this] { return source->isAway(); }));
    EXPECT_EQ(describe(), Description::failed);
}

TEST_F(CameraStreamStates, CameraThatComesBackRunsAgain)
{
    *packets = 1;
    options.makeRun =
        scripted({{"no", false, nullptr, SourceFailure::Cause::refused}, {"gone"}, {"", false, packets}});
    open();
    EXPECT_EQ(describe(), Description::failed);
    EXPECT_TRUE(waitFor(CameraState::refused));
    source->acquire();
    EXPECT_TRUE(waitFor(CameraState::running));
    EXPECT_EQ(states.find(1, 0)->failures, 2U);
    EXPECT_EQ(states.find(1, 0)->lastError, "gone");
}

TEST_F(CameraStreamTest, DescribesVideoAndAudio)
{
    open();
    EXPECT_EQ(source->describe(tracks), Description::starting);
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].trackId, "trackID=0");
    EXPECT_EQ(tracks[0].mediaType, "video");
    EXPECT_EQ(tracks[0].encodingName, "H264");
    EXPECT_EQ(tracks[0].payloadType, 96);
    EXPECT_EQ(tracks[0].clockRate, 90000);
    EXPECT_EQ(tracks[0].width, 320);
    EXPECT_EQ(tracks[0].height, 180);
    EXPECT_EQ(tracks[0].frameRate, 25.0);
    EXPECT_EQ(tracks[0].bitRate, 400);
    EXPECT_THAT(tracks[0].formatParameters, StartsWith("packetization-mode=1;profile-level-id="));
    EXPECT_THAT(tracks[0].formatParameters, HasSubstr(";sprop-parameter-sets=Z"));
    EXPECT_EQ(tracks[1].trackId, "trackID=1");
    EXPECT_EQ(tracks[1].mediaType, "audio");
    EXPECT_EQ(tracks[1].encodingName, "PCMU");
    EXPECT_EQ(tracks[1].payloadType, 0);
    EXPECT_EQ(tracks[1].clockRate, 8000);
    EXPECT_EQ(tracks[1].channels, 1);
    EXPECT_EQ(tracks[1].formatParameters, "");
}

TEST_F(CameraStreamTest, VideoUnitsAreCompleteAndInOrderAndStartWithAKeyFrame)
{
    open();
    const auto sink = watch("trackID=0");
    ASSERT_TRUE(sink->waitForUnits(25));
    const std::vector<AccessUnitPtr> units = sink->units();
    std::size_t keys = 0;
    std::uint16_t expected = sequenceOf(*units[0], 0);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        const AccessUnit& unit = *units[i];
        for (std::size_t packet = 0; packet < unit.packets.size(); ++packet)
        {
            EXPECT_EQ(sequenceOf(unit, packet), expected++);
            EXPECT_EQ(hasMarker(unit, packet), packet + 1 == unit.packets.size());
        }
        if (i > 0)
        {
            EXPECT_EQ(unit.rtpTimestamp - units[i - 1]->rtpTimestamp, 90000U / 25);
            EXPECT_NEAR(
                static_cast<double>(test::nsOf(unit.captureTime) - test::nsOf(units[i - 1]->captureTime)),
                40e6, 1e3);
        }
        keys += unit.keyFrame ? 1 : 0;
        EXPECT_EQ(unit.keyFrame, i % 10 == 0) << i;
        if (unit.keyFrame)
        {
            EXPECT_EQ(unit.bytes[unit.packets[0].offset + AccessUnit::rtpHeaderSize] & 0x1f, h264StapA);
        }
    }
    EXPECT_GE(keys, 2U);
}

TEST_F(CameraStreamTest, TwoPayloadSizesShareOneEncoder)
{
    open();
    const auto large = attach("trackID=0");
    const auto small = attach("trackID=0", 500);
    source->acquire();
    ASSERT_TRUE(large->waitForUnits(12));
    ASSERT_TRUE(small->waitForUnits(12));
    EXPECT_EQ(source->starts(), 1);
    EXPECT_EQ(largestPayload(large->units()), 1364U);
    EXPECT_EQ(largestPayload(small->units()), 500U);
    // The same frames: equal times, and equal sizes except for the headers of fragments.
    std::set<std::uint32_t> times;
    for (const AccessUnitPtr& unit : large->units())
    {
        times.insert(unit->rtpTimestamp);
    }
    for (const AccessUnitPtr& unit : small->units())
    {
        EXPECT_TRUE(times.count(unit->rtpTimestamp) != 0 || unit->rtpTimestamp > *times.rbegin());
    }
}

TEST_F(CameraStreamTest, PayloadSizeCanBeAddedAndRemovedLater)
{
    open();
    const auto large = watch("trackID=0");
    ASSERT_TRUE(large->waitForUnits(3));
    for (int iteration = 0; iteration < 3; ++iteration)
    {
        const auto small = attach("trackID=0", 700);
        ASSERT_TRUE(small->waitForUnits(2));
        EXPECT_TRUE(small->units()[0]->keyFrame);
        source->detach(small.get());
        const std::size_t received = small->units().size();
        ASSERT_TRUE(large->waitForUnits(large->units().size() + 3));
        EXPECT_EQ(small->units().size(), received);
    }
    EXPECT_EQ(source->starts(), 1);
    EXPECT_EQ(large->discontinuities(), 0);
}

TEST_F(CameraStreamTest, VideoAndAudioHaveOneTimeline)
{
    open();
    const auto video = attach("trackID=0");
    const auto audio = attach("trackID=1");
    source->acquire();
    ASSERT_TRUE(video->waitForUnits(5));
    ASSERT_TRUE(audio->waitForUnits(20));
    const std::int64_t now = test::nsOf(HostClock::system().now());
    const AccessUnit& frame = *video->units()[0];
    const AccessUnit& audioUnit = *audio->units()[0];
    EXPECT_EQ(audioUnit.packets.size(), 1U);
    EXPECT_EQ(audioUnit.payloadBytes, 160U);
    EXPECT_TRUE(audioUnit.keyFrame);
    // Both live sources start with the pipeline; a loaded machine may need a second.
    EXPECT_NEAR(static_cast<double>(test::nsOf(frame.captureTime) - test::nsOf(audioUnit.captureTime)), 0,
                1e9);
    EXPECT_LT(test::nsOf(frame.captureTime), now);
    EXPECT_GT(test::nsOf(frame.captureTime), now - std::int64_t{8'000'000'000});
    // The media clocks agree: the distance from the start is equal in RTP time and in capture time.
    const double framesOffset =
        frame.rtpTimestamp / 90000.0 -
        static_cast<double>(test::nsOf(frame.captureTime) % 100'000'000'000'000) / 1e9;
    const double audiosOffset =
        audioUnit.rtpTimestamp / 8000.0 -
        static_cast<double>(test::nsOf(audioUnit.captureTime) % 100'000'000'000'000) / 1e9;
    EXPECT_NEAR(framesOffset, audiosOffset, 0.001);
}

TEST_F(CameraStreamTest, TasksAreFewWhileViewersComeAndGoAndTheSourceHangs)
{
    open();
    std::promise<void> held;
    std::promise<void> released;
    std::atomic<bool> first{true};
    const std::shared_future<void> release = released.get_future().share();
    // The description is announced on the stream's own thread.
    const auto id = ChangeSignal::instance().subscribe(
        [&]
        {
            if (first.exchange(false))
            {
                held.set_value();
                release.wait();
            }
        });
    source->describe(tracks);
    held.get_future().wait();
    const auto sink = std::make_shared<CollectingSink>();
    for (int i = 0; i < 10000; ++i)
    {
        source->acquire();
        source->attach("trackID=0", 1000, sink);
        source->detach(sink.get());
        source->release();
    }
    EXPECT_LE(source->waitingTasks(), 10U);
    released.set_value();
    ChangeSignal::instance().unsubscribe(id);
}

TEST_F(CameraStreamTest, SourceStopsAfterTheLastViewer)
{
    open();
    const auto sink = watch("trackID=0");
    source->acquire();
    ASSERT_TRUE(sink->waitForUnits(1));
    source->release();
    ASSERT_TRUE(sink->waitForUnits(10));
    EXPECT_TRUE(source->isRunning());
    EXPECT_EQ(sink->discontinuities(), 0);
    source->release();
    ASSERT_TRUE(sink->waitForDiscontinuities(1));
    EXPECT_FALSE(source->isRunning());
    EXPECT_EQ(source->describe(tracks), Description::ready);
    EXPECT_FALSE(source->isRunning());
}

TEST_F(CameraStreamTest, SourceKeepsRunningWhenTheNextViewerComesSoon)
{
    options.linger = std::chrono::seconds(30);
    open();
    const auto sink = attach("trackID=0");
    for (int viewer = 0; viewer < 4; ++viewer)
    {
        source->acquire();
        ASSERT_TRUE(sink->waitForUnits(sink->units().size() + 2));
        source->release();
    }
    EXPECT_EQ(source->starts(), 1);
    EXPECT_EQ(sink->discontinuities(), 0);
}

TEST_F(CameraStreamTest, SourceRestartsForALaterViewer)
{
    open();
    const auto sink = watch("trackID=0");
    ASSERT_TRUE(sink->waitForUnits(3));
    source->release();
    ASSERT_TRUE(sink->waitForDiscontinuities(1));
    const std::size_t before = sink->units().size();
    source->acquire();
    ASSERT_TRUE(sink->waitForUnits(before + 3));
    EXPECT_TRUE(sink->units()[before]->keyFrame);
    EXPECT_EQ(source->starts(), 2);
}

TEST_F(CameraStreamTest, SourceStopsAfterADescriptionWithoutViewers)
{
    open();
    const auto sink = attach("trackID=0");
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_TRUE(sink->waitForDiscontinuities(1));
    EXPECT_FALSE(source->isRunning());
}

TEST_F(CameraStreamTest, RequestedKeyFrameComesBeforeTheEndOfTheGop)
{
    stream.gop = 250;
    open();
    const auto sink = watch("trackID=0");
    ASSERT_TRUE(sink->waitForUnits(5));
    source->requestKeyFrame();
    ASSERT_TRUE(sink->waitForUnits(15));
    const std::vector<AccessUnitPtr> units = sink->units();
    EXPECT_EQ(
        std::count_if(units.begin(), units.end(), [](const AccessUnitPtr& unit) { return unit->keyFrame; }),
        2);
}

TEST_F(CameraStreamTest, KeyFrameRequestsAreLimitedToTwoASecond)
{
    stream.gop = 250;
    open();
    const auto sink = watch("trackID=0");
    for (std::size_t unit = 1; unit <= 25; ++unit)
    {
        ASSERT_TRUE(sink->waitForUnits(unit));
        source->requestKeyFrame();
    }
    const std::vector<AccessUnitPtr> units = sink->units();
    const auto keys =
        std::count_if(units.begin(), units.end(), [](const AccessUnitPtr& unit) { return unit->keyFrame; });
    EXPECT_GE(keys, 2);
    EXPECT_LE(keys, 4);
}

TEST_F(CameraStreamTest, ViewersMayComeAndGoAtRandom)
{
    options.linger = std::chrono::milliseconds(1);
    open();
    const auto steady = attach("trackID=0");
    std::vector<std::thread> viewers;
    for (int viewer = 0; viewer < 4; ++viewer)
    {
        viewers.emplace_back(
            [this, viewer]
            {
                for (int iteration = 0; iteration < 25; ++iteration)
                {
                    const auto sink =
                        attach(viewer % 2 == 0 ? "trackID=0" : "trackID=1", 400 + 100 * (iteration % 3));
                    source->acquire();
                    std::vector<SubMediaInfo> known;
                    source->describe(known);
                    if (iteration % 5 == 0)
                    {
                        sink->waitForUnits(1);
                    }
                    source->requestKeyFrame();
                    source->detach(sink.get());
                    source->release();
                }
            });
    }
    for (std::thread& viewer : viewers)
    {
        viewer.join();
    }
    source->acquire();
    const std::size_t before = steady->units().size();
    EXPECT_TRUE(steady->waitForUnits(before + 3));
}

TEST_F(CameraStreamTest, StreamMayBeDestroyedWhileItStarts)
{
    for (int iteration = 0; iteration < 20; ++iteration)
    {
        open();
        source->acquire();
        for (int turn = 0; turn < iteration * 200; ++turn)
        {
            std::this_thread::yield();
        }
        ChangeSignal::instance().unsubscribe(subscription);
        source.reset();
        streams.reset();
    }
}

TEST_F(CameraStreamTest, StreamWithoutAudioHasOneTrack)
{
    stream.audioCodec = std::nullopt;
    open();
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 1U);
    EXPECT_EQ(tracks[0].trackId, "trackID=0");
}

TEST_F(CameraStreamTest, StreamWithoutVideoHasOneTrack)
{
    stream.videoCodec = std::nullopt;
    stream.audioCodec = Codec::pcma;
    open();
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 1U);
    EXPECT_EQ(tracks[0].encodingName, "PCMA");
    EXPECT_EQ(tracks[0].payloadType, 8);
}

TEST_F(CameraStreamTest, H265AndAacAreEncoded)
{
    stream.videoCodec = Codec::h265;
    stream.audioCodec = Codec::aac;
    open();
    const auto video = attach("trackID=0");
    const auto audio = attach("trackID=1");
    source->acquire();
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].encodingName, "H265");
    EXPECT_THAT(tracks[0].formatParameters, HasSubstr("sprop-vps="));
    EXPECT_THAT(tracks[0].formatParameters, HasSubstr(";sprop-sps="));
    EXPECT_THAT(tracks[0].formatParameters, HasSubstr(";sprop-pps="));
    EXPECT_EQ(tracks[1].encodingName, "MPEG4-GENERIC");
    EXPECT_EQ(tracks[1].payloadType, 97);
    EXPECT_EQ(tracks[1].clockRate, 16000);
    EXPECT_EQ(tracks[1].channels, 1);
    EXPECT_THAT(tracks[1].formatParameters, HasSubstr("mode=AAC-hbr;config="));
    EXPECT_THAT(tracks[1].formatParameters, HasSubstr("sizelength=13;indexlength=3;indexdeltalength=3"));
    ASSERT_TRUE(video->waitForUnits(12));
    ASSERT_TRUE(audio->waitForUnits(5));
    EXPECT_TRUE(video->units()[0]->keyFrame);
    EXPECT_FALSE(video->units()[1]->keyFrame);
    EXPECT_TRUE(video->units()[10]->keyFrame);
}

}  // namespace
}  // namespace refhost
