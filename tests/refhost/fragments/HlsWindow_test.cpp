#include "refhost/fragments/HlsWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using State = HlsFound::State;
using Kind = HlsQuery::Kind;

class HlsWindowTest : public testing::Test, protected MadeUnits
{
protected:
    HlsWindowTest()
    {
        audio = audioFormat(Codec::aac);
        stream_.expect({true, false});
    }

    /// Moves what a viewer reads to the window.
    void give(const EncodedUnitPtr& unit)
    {
        stream_.onEncodedUnit(unit);
        for (;;)
        {
            const FragmentStream::Next next = stream_.read(cursor_);
            if (next.description)
            {
                window_.begin(*next.description);
            }
            else if (next.fragment == nullptr)
            {
                return;
            }
            else
            {
                window_.add(next, WallTime(next.captured.time_since_epoch()));
            }
        }
    }

    /// Frames of [begin, end) seconds.
    void run(double begin, double end, double gop = 1, int rate = 25, std::size_t bytes = 1000)
    {
        const int frames = static_cast<int>(std::lround(gop * rate));
        for (auto i = std::lround(begin * rate); i < std::lround(end * rate); ++i)
        {
            auto unit =
                std::make_shared<EncodedUnit>(*frame(static_cast<double>(i) / rate, i % frames == 0, bytes));
            unit->duration = durationOf(std::chrono::duration<double>(1.0 / rate));
            give(unit);
        }
    }

    State state(std::optional<std::uint64_t> segment, std::optional<std::uint64_t> part = std::nullopt) const
    {
        return window_.find({Kind::playlist, segment, part}).state;
    }

    std::string playlist() const
    {
        const HlsFound found = window_.find({});
        return found.text == nullptr ? "" : *found.text;
    }

    HlsFound file(const std::string& name) const
    {
        return window_.find({Kind::file, {}, {}, name});
    }

    std::vector<std::uint8_t> bytesOf(const std::string& name) const
    {
        std::vector<std::uint8_t> all;
        for (const FragmentStream::Bytes& block : file(name).bytes)
        {
            all.insert(all.end(), block->begin(), block->end());
        }
        return all;
    }

    /// What an expression with one group finds in the playlist.
    std::vector<std::string> all(const std::string& expression) const
    {
        const std::string text = playlist();
        const std::regex regex(expression);
        std::vector<std::string> found;
        for (std::sregex_iterator each(text.begin(), text.end(), regex), end; each != end; ++each)
        {
            found.push_back((*each)[1]);
        }
        return found;
    }

    test::ManualClock clock_;
    FragmentStream stream_{clock_};
    FragmentStream::Cursor cursor_;
    HlsWindow window_{"w", 100};
};

TEST_F(HlsWindowTest, ThePlaylistComesWithTheFirstWholeSegment)
{
    EXPECT_EQ(state({}), State::awaited);
    run(0, 1);
    EXPECT_EQ(state({}), State::awaited);
    run(1, 1.04);
    EXPECT_EQ(state({}), State::there);
    EXPECT_EQ(playlist(),
              "#EXTM3U\n"
              "#EXT-X-VERSION:6\n"
              "#EXT-X-TARGETDURATION:2\n"
              "#EXT-X-SERVER-CONTROL:CAN-BLOCK-RELOAD=YES,PART-HOLD-BACK=0.870\n"
              "#EXT-X-PART-INF:PART-TARGET=0.290\n"
              "#EXT-X-MEDIA-SEQUENCE:100\n"
              "#EXT-X-DISCONTINUITY-SEQUENCE:100\n"
              "#EXT-X-INDEPENDENT-SEGMENTS\n"
              "#EXT-X-MAP:URI=\"media/w-i1.mp4\"\n"
              "#EXT-X-PROGRAM-DATE-TIME:2026-01-01T00:00:00.123Z\n"
              "#EXT-X-PART:DURATION=0.28000,URI=\"media/w-p0.m4s\",INDEPENDENT=YES\n"
              "#EXT-X-PART:DURATION=0.28000,URI=\"media/w-p1.m4s\"\n"
              "#EXT-X-PART:DURATION=0.28000,URI=\"media/w-p2.m4s\"\n"
              "#EXT-X-PART:DURATION=0.16000,URI=\"media/w-p3.m4s\"\n"
              "#EXTINF:1.00000,\n"
              "media/w-s100.m4s\n"
              "#EXT-X-PRELOAD-HINT:TYPE=PART,URI=\"media/w-p4.m4s\"\n");
}

TEST_F(HlsWindowTest, ASegmentIsItsPartsAndBeginsWithAKeyFrame)
{
    run(0, 3.2);
    for (const int segment : {100, 101, 102})
    {
        std::vector<std::uint8_t> parts;
        for (int part = 0; part < 4; ++part)
        {
            const auto more = bytesOf("w-p" + std::to_string((segment - 100) * 4 + part) + ".m4s");
            parts.insert(parts.end(), more.begin(), more.end());
        }
        const auto whole = bytesOf("w-s" + std::to_string(segment) + ".m4s");
        EXPECT_EQ(whole, parts) << segment;
        const auto run = test::Mp4Box::find(whole, "moof/traf/trun");
        ASSERT_TRUE(run) << segment;
        EXPECT_EQ(run->number(20, 4), 0x02000000U) << "sample flags of a key frame";
    }
    EXPECT_TRUE(test::Mp4Box::find(bytesOf("w-i1.mp4"), "moov/mvex/trex"));
}

TEST_F(HlsWindowTest, TheHintIsAlwaysTheNextPart)
{
    run(0, 1.04);
    // 24 frames: a part ends where the segment does, and nobody knows before.
    for (int i = 26; i < 400; ++i)
    {
        const auto hint = all("PRELOAD-HINT:TYPE=PART,URI=\"media/(.*)\"").at(0);
        const std::string before = playlist();
        give(frame(i / 25.0, i % 24 == 0));
        const auto parts = all("PART:.*URI=\"media/(w-p[^\"]*)\"");
        ASSERT_FALSE(parts.empty());
        if (playlist() != before)
        {
            EXPECT_THAT(parts, testing::Contains(hint));
            EXPECT_EQ(file(hint).state, State::there);
        }
        else
        {
            EXPECT_EQ(file(hint).state, State::awaited);
        }
    }
}

TEST_F(HlsWindowTest, PartsAreNoLongerThanTheirTargetAndAlmostAsLong)
{
    for (const int rate : {5, 10, 12, 15, 20, 24, 25, 30, 50, 60})
    {
        window_ = HlsWindow("r" + std::to_string(rate), 1);
        cursor_ = {};
        // What is kept of the former rate is another stream's.
        stream_.onDiscontinuity();
        run(100 * rate, 100 * rate + 6.1, 2, rate);
        const double target = std::stod(all("PART-TARGET=([0-9.]*)").at(0));
        const auto durations = all("PART:DURATION=([0-9.]*),");
        ASSERT_GT(durations.size(), 10U) << rate;
        std::size_t brief = 0;
        for (const std::string& duration : durations)
        {
            EXPECT_LE(std::stod(duration), target) << rate;
            brief += std::stod(duration) < 0.85 * target ? 1 : 0;
        }
        EXPECT_LE(brief, 4U) << rate << ": but those at the end of a segment";
        EXPECT_LE(target, 0.311) << rate;
    }
}

TEST_F(HlsWindowTest, AQueryIsAnsweredWithWhatItNames)
{
    run(0, 2.5);
    // 100 and 101 are whole with four parts each, 102 has one part.
    EXPECT_EQ(state(99), State::there);
    EXPECT_EQ(state(101), State::there);
    EXPECT_EQ(state(101, 3), State::there);
    EXPECT_EQ(state(101, 4), State::there) << "the first one of the next segment";
    EXPECT_EQ(state(102), State::awaited);
    EXPECT_EQ(state(102, 0), State::there);
    EXPECT_EQ(state(102, 1), State::awaited);
    EXPECT_EQ(state(103, 0), State::awaited);
    EXPECT_EQ(state(104), State::invalid);
    EXPECT_EQ(state({}, 0), State::invalid);
    run(2.5, 2.6);
    EXPECT_EQ(state(102, 1), State::there);
    EXPECT_EQ(state(102, 9), State::awaited);
    run(2.6, 3.36);
    EXPECT_EQ(state(102, 9), State::there);
    EXPECT_EQ(window_.find({}).target, 2);
}

TEST_F(HlsWindowTest, FilesThatAreNotThereAreAbsent)
{
    run(0, 2.5);
    for (const char* const name :
         {"", "w", "w-", "w-s", "w-s.m4s", "w-s100", "w-s102.m4s", "w-s99.m4s", "w-p10.m4s", "w-p-1.m4s",
          "w-x1.m4s", "w-i2.mp4", "v-s100.m4s", "w-s100.m4s.m4s", "w-p18446744073709551616.m4s", ".m4s"})
    {
        EXPECT_EQ(file(name).state, State::absent) << name;
    }
    EXPECT_EQ(file("w-p9.m4s").state, State::awaited);
}

TEST_F(HlsWindowTest, WhatIsKeptIsBoundedInSegments)
{
    run(0, 40.04);
    EXPECT_EQ(all("(EXTINF)").size(), HlsWindow::maxListed);
    EXPECT_EQ(all("SEQUENCE:([0-9]*)"), (std::vector<std::string>{"133", "100"}));
    EXPECT_EQ(file("w-s126.m4s").state, State::there) << "a client may still know of it";
    EXPECT_EQ(file("w-s125.m4s").state, State::absent);
    EXPECT_EQ(all("PART:.*(p[0-9]*).m4s").size(), 24U) << "of three target durations";
}

TEST_F(HlsWindowTest, WhatIsKeptIsBoundedInBytes)
{
    run(0, 20, 1, 25, std::size_t{1} << 20U);
    EXPECT_LE(window_.bytes(), HlsWindow::maxBytes + HlsWindow::maxSegmentBytes);
    EXPECT_GE(all("(EXTINF)").size(), 1U);
    EXPECT_EQ(state({}), State::there);
    EXPECT_EQ(all("SEQUENCE:([0-9]*)").size(), 2U);
}

TEST_F(HlsWindowTest, WithoutKeyFramesSegmentsEndAllTheSame)
{
    run(0, 3.04, 1);
    run(3.04, 12, 100);
    for (const std::string& length : all("EXTINF:([0-9.]*)"))
    {
        EXPECT_LE(std::lround(std::stod(length)), 2) << length;
    }
    EXPECT_THAT(playlist(), Not(HasSubstr("INDEPENDENT-SEGMENTS")));
}

TEST_F(HlsWindowTest, AFirstSegmentWithoutAnEndIsCut)
{
    run(0, 11, 100);
    EXPECT_THAT(playlist(), HasSubstr("TARGETDURATION:10\n"));
    EXPECT_THAT(all("EXTINF:([0-9.]*)"), ElementsAre(StartsWith("10.")));
}

TEST_F(HlsWindowTest, GopsShorterThanASegmentAreJoined)
{
    run(0, 4.2, 0.4);
    EXPECT_THAT(all("EXTINF:([0-9.]*)"), ElementsAre("1.20000", "1.60000"));
}

TEST_F(HlsWindowTest, AGapIsADiscontinuity)
{
    run(0, 2.2);
    stream_.onDiscontinuity();
    run(10, 11.4);
    EXPECT_THAT(playlist(), HasSubstr("#EXTINF:0.20000,\nmedia/w-s102.m4s\n#EXT-X-DISCONTINUITY\n"
                                      "#EXT-X-PROGRAM-DATE-TIME:2026-01-01T00:00:10.123Z\n"));
    EXPECT_EQ(all("(EXT-X-MAP)").size(), 1U);
    run(11.4, 30);
    EXPECT_THAT(playlist(), HasSubstr("#EXT-X-DISCONTINUITY-SEQUENCE:101\n"));
}

TEST_F(HlsWindowTest, AnotherFormatIsADiscontinuityWithItsInitSegment)
{
    run(0, 2.2);
    video = videoFormat(640);
    run(3, 4.04);
    EXPECT_THAT(playlist(), HasSubstr("#EXT-X-DISCONTINUITY\n#EXT-X-MAP:URI=\"media/w-i2.mp4\"\n"));
    EXPECT_EQ(file("w-i1.mp4").state, State::there);
    EXPECT_EQ(file("w-i2.mp4").state, State::there);
    EXPECT_NE(bytesOf("w-i1.mp4"), bytesOf("w-i2.mp4"));
}

TEST_F(HlsWindowTest, ABeginningThatBreaksOffIsForgotten)
{
    run(0, 0.2);
    stream_.onDiscontinuity();
    run(5, 6.04);
    EXPECT_THAT(playlist(), HasSubstr("MEDIA-SEQUENCE:100\n"));
    EXPECT_THAT(playlist(), HasSubstr("TARGETDURATION:2\n"));
    EXPECT_THAT(playlist(), HasSubstr("#EXTINF:1.00000,\n"));
}

TEST_F(HlsWindowTest, TheMultivariantPlaylistSaysWhatTheStreamIs)
{
    stream_.expect({true, true});
    EXPECT_EQ(window_.find({Kind::multivariant}).state, State::awaited);
    for (int i = 0; i <= 25; ++i)
    {
        give(frame(i / 25.0, i % 25 == 0, 10000));
        give(block(i / 25.0));
    }
    const HlsFound found = window_.find({Kind::multivariant});
    ASSERT_EQ(found.state, State::there);
    EXPECT_EQ(*found.text,
              "#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-STREAM-INF:BANDWIDTH=2612000,AVERAGE-BANDWIDTH=2089600,"
              "CODECS=\"avc1.42C00D,mp4a.40.2\",RESOLUTION=320x180,FRAME-RATE=25.000\nlive.m3u8\n");
}

TEST_F(HlsWindowTest, AudioGoesWithTheFramesAroundIt)
{
    stream_.expect({true, true});
    for (int i = 0; i <= 60; ++i)
    {
        give(frame(i / 25.0, i % 25 == 0));
        give(block(i / 25.0));
    }
    std::size_t fragments = 0;
    for (const test::Mp4Box& box : test::Mp4Box::allOf(bytesOf("w-s100.m4s")))
    {
        fragments += box.type == "moof" ? 1 : 0;
    }
    EXPECT_GE(fragments, 49U);
    EXPECT_LE(fragments, 50U);
    EXPECT_EQ(file("w-s101.m4s").state, State::there);
}

TEST_F(HlsWindowTest, AStreamOfAudioHasSegmentsToo)
{
    stream_.expect({false, true});
    for (int i = 0; i <= 120; ++i)
    {
        give(block(i / 50.0));
    }
    EXPECT_THAT(playlist(), HasSubstr("#EXT-X-TARGETDURATION:2\n"));
    EXPECT_THAT(playlist(), HasSubstr("#EXT-X-INDEPENDENT-SEGMENTS\n"));
    EXPECT_EQ(all("(EXTINF)").size(), 2U);
    EXPECT_THAT(*window_.find({Kind::multivariant}).text, HasSubstr("CODECS=\"mp4a.40.2\"\nlive.m3u8\n"));
}

}  // namespace
}  // namespace refhost
