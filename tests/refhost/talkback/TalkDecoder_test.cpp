#include "refhost/talkback/TalkDecoder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/TemporaryFolder.h"
#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::Bytes;
using refhost::test::Samples;

namespace
{

SubMediaInfo track(const std::string& codec, int rate, int channels = 1, const std::string& parameters = "")
{
    SubMediaInfo info;
    info.trackId = "trackID=2";
    info.mediaType = "audio";
    info.encodingName = codec;
    info.clockRate = rate;
    info.channels = channels;
    info.formatParameters = parameters;
    info.setAudioBackInfoFlag(true);
    return info;
}

SubMediaInfo aac16k()
{
    return track("MPEG4-GENERIC", 16000, 1,
                 "streamtype=5;profile-level-id=1;mode=AAC-hbr;config=1408;sizelength=13;indexlength=3");
}

// All 256 codes as ffmpeg decodes them.
Samples reference(const std::string& format)
{
    const TemporaryFolder folder;
    Bytes codes;
    for (int i = 0; i < 256; ++i)
    {
        codes.push_back(static_cast<std::uint8_t>(i));
    }
    test::writeFile(folder / "in", codes.data(), codes.size());
    if (!test::ffmpeg("-f " + format + " -ar 8000 -ac 1 -i " + (folder / "in") + " -f s16le " +
                      (folder / "out")))
    {
        return {};
    }
    return test::samplesOf(test::readFile(folder / "out"));
}

Samples decoded(TalkDecoder& decoder, const Bytes& frame)
{
    Samples out;
    EXPECT_TRUE(decoder.decode(frame.data(), frame.size(), out));
    return out;
}

struct AacFile
{
    std::vector<Bytes> units;
    Samples reference;
};

// Access units of a tone encoded by ffmpeg, and as ffmpeg decodes them.
AacFile aacTone(int rate, int channels)
{
    const TemporaryFolder folder;
    const std::string file = folder / "tone.aac";
    AacFile out;
    if (!test::ffmpeg("-f lavfi -i sine=1000:r=" + std::to_string(rate) + ":d=1 -ac " +
                      std::to_string(channels) + " -c:a aac -b:a 64k -f adts " + file) ||
        !test::ffmpeg("-i " + file + " -f s16le " + (folder / "pcm")))
    {
        return out;
    }
    out.reference = test::samplesOf(test::readFile(folder / "pcm"));
    const Bytes bytes = test::readFile(file);
    for (std::size_t at = 0; at + 7 < bytes.size();)
    {
        const std::size_t size = ((bytes[at + 3] & 3u) << 11) | (bytes[at + 4] << 3) | (bytes[at + 5] >> 5);
        if (size < 7 || at + size > bytes.size())
        {
            break;
        }
        out.units.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at + 7),
                               bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
        at += size;
    }
    return out;
}

// Packets of 20 ms of a tone encoded by ffmpeg: the content of an Ogg file's pages (RFC 3533, section 6)
// after the two headers.
std::vector<Bytes> opusTone(int channels)
{
    const TemporaryFolder folder;
    const std::string file = folder / "tone.ogg";
    if (!test::ffmpeg("-f lavfi -i sine=1000:r=48000:d=1 -ac " + std::to_string(channels) +
                      " -c:a libopus -b:a 64k -page_duration 1 " + file))
    {
        return {};
    }
    const Bytes bytes = test::readFile(file);
    std::vector<Bytes> packets(1);
    for (std::size_t at = 0; at + 27 <= bytes.size();)
    {
        const std::size_t count = bytes[at + 26];
        const std::size_t sizes = at + 27;
        at = sizes + count;
        for (std::size_t i = 0; i < count; ++i)
        {
            const std::size_t size = bytes[sizes + i];
            packets.back().insert(packets.back().end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                  bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
            at += size;
            if (size < 255)
            {
                packets.emplace_back();
            }
        }
    }
    packets.pop_back();
    packets.erase(packets.begin(), packets.begin() + 2);
    return packets;
}

}  // namespace

TEST(TalkDecoder, EveryPcmuCodeIsDecodedAsFfmpegDoes)
{
    const auto decoder = TalkDecoder::make(track("PCMU", 8000), {8000, 1});
    ASSERT_TRUE(decoder);
    Bytes codes(256);
    for (std::size_t i = 0; i < 256; ++i)
    {
        codes[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_EQ(reference("mulaw"), decoded(*decoder, codes));
}

TEST(TalkDecoder, EveryPcmaCodeIsDecodedAsFfmpegDoes)
{
    const auto decoder = TalkDecoder::make(track("PCMA", 8000), {8000, 1});
    ASSERT_TRUE(decoder);
    Bytes codes(256);
    for (std::size_t i = 0; i < 256; ++i)
    {
        codes[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_EQ(reference("alaw"), decoded(*decoder, codes));
}

TEST(TalkDecoder, PcmuOfATelephoneIsBroughtToTheOutputsRateAndChannels)
{
    const auto decoder = TalkDecoder::make(track("PCMU", 8000), {48000, 2});
    ASSERT_TRUE(decoder);
    Samples out;
    for (int i = 0; i < 10; ++i)
    {
        const Bytes silence(160, 0xff);
        EXPECT_TRUE(decoder->decode(silence.data(), silence.size(), out));
    }
    EXPECT_NEAR(2 * 9600, static_cast<double>(out.size()), 200);
    EXPECT_EQ(0u, out.size() % 2);
}

TEST(TalkDecoder, AacIsDecodedAsFfmpegDoes)
{
    const AacFile file = aacTone(16000, 1);
    ASSERT_LE(10u, file.units.size());
    const auto decoder = TalkDecoder::make(aac16k(), {16000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    for (const Bytes& unit : file.units)
    {
        ASSERT_TRUE(decoder->decode(unit.data(), unit.size(), out));
    }
    ASSERT_EQ(file.reference.size(), out.size());
    int difference = 0;
    for (std::size_t i = 0; i < out.size(); ++i)
    {
        difference = std::max(difference, std::abs(out[i] - file.reference[i]));
    }
    EXPECT_LE(difference, 1) << "only the last bit may be rounded otherwise";
    EXPECT_LT(1000, test::amplitudeAt(1000, 16000, out, 4000, 8000));
}

TEST(TalkDecoder, AacOfManyFormatsBecomesWhatTheOutputTakes)
{
    struct Case
    {
        int rate;
        int channels;
        const char* config;
    };
    for (const Case& c : {Case{8000, 1, "1588"}, Case{44100, 2, "1210"}, Case{48000, 1, "1188"}})
    {
        const AacFile file = aacTone(c.rate, c.channels);
        ASSERT_FALSE(file.units.empty());
        const auto decoder = TalkDecoder::make(
            track("MPEG4-GENERIC", c.rate, c.channels, std::string("mode=AAC-hbr; config=") + c.config),
            {48000, 1});
        ASSERT_TRUE(decoder) << c.config;
        Samples out;
        for (const Bytes& unit : file.units)
        {
            ASSERT_TRUE(decoder->decode(unit.data(), unit.size(), out));
        }
        const double seconds = static_cast<double>(file.units.size()) * 1024 / c.rate;
        EXPECT_NEAR(seconds * 48000, static_cast<double>(out.size()), 480) << c.config;
        EXPECT_LT(1000, test::amplitudeAt(1000, 48000, out, 20000, 20000)) << c.config;
    }
}

TEST(TalkDecoder, OpusOfOneAndOfTwoChannelsBecomesWhatTheOutputTakes)
{
    for (const int channels : {1, 2})
    {
        const std::vector<Bytes> packets = opusTone(channels);
        ASSERT_LE(50U, packets.size());
        const auto decoder = TalkDecoder::make(track("opus", 48000, 2), {16000, 1});
        ASSERT_TRUE(decoder);
        Samples out;
        for (const Bytes& packet : packets)
        {
            ASSERT_TRUE(decoder->decode(packet.data(), packet.size(), out));
        }
        EXPECT_NEAR(static_cast<double>(packets.size()) * 320, static_cast<double>(out.size()), 320);
        EXPECT_LT(1000, test::amplitudeAt(1000, 16000, out, 4000, 8000)) << channels;
    }
}

TEST(TalkDecoder, InvalidOpusAppendsNothing)
{
    const auto decoder = TalkDecoder::make(track("opus", 48000, 2), {48000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    const Bytes tooLong{(31 << 3) | 3, 63, 1, 2, 3};
    EXPECT_FALSE(decoder->decode(tooLong.data(), tooLong.size(), out));
    EXPECT_FALSE(decoder->decode(tooLong.data(), 0, out));
    EXPECT_TRUE(out.empty());
}

TEST(TalkDecoder, InvalidFrameAppendsNothingAndTheNextOneIsDecoded)
{
    const AacFile file = aacTone(16000, 1);
    ASSERT_LE(10u, file.units.size());
    const auto decoder = TalkDecoder::make(aac16k(), {16000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    const Bytes rubbish(300, 0x5a);
    EXPECT_FALSE(decoder->decode(rubbish.data(), rubbish.size(), out));
    EXPECT_FALSE(decoder->decode(rubbish.data(), 0, out));
    EXPECT_TRUE(out.empty());
    for (const Bytes& unit : file.units)
    {
        EXPECT_TRUE(decoder->decode(unit.data(), unit.size(), out));
    }
    EXPECT_FALSE(out.empty());
}

TEST(TalkDecoder, EveryPrefixOfAnAacFrameIsSurvived)
{
    const AacFile file = aacTone(16000, 1);
    ASSERT_LE(10u, file.units.size());
    const auto decoder = TalkDecoder::make(aac16k(), {48000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    for (std::size_t size = 0; size < file.units[5].size(); ++size)
    {
        out.clear();
        const bool taken = decoder->decode(file.units[5].data(), size, out);
        EXPECT_TRUE(taken || out.empty()) << size;
    }
}

TEST(TalkDecoder, EmptyPcmFrameIsRefused)
{
    const auto decoder = TalkDecoder::make(track("PCMU", 8000, 2), {8000, 1});
    ASSERT_TRUE(decoder);
    const Bytes odd(3, 0xff);
    Samples out;
    EXPECT_FALSE(decoder->decode(odd.data(), 0, out));
    EXPECT_FALSE(decoder->decode(odd.data(), odd.size(), out)) << "half a frame of two channels";
    EXPECT_TRUE(out.empty());
}

TEST(TalkDecoder, LostAudioIsMadeUpAtItsLength)
{
    const auto decoder = TalkDecoder::make(track("PCMA", 8000), {48000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    for (int i = 0; i < 4; ++i)
    {
        const Bytes loud(160, 0xaa);
        EXPECT_TRUE(decoder->decode(loud.data(), loud.size(), out));
    }
    const std::size_t before = out.size();
    decoder->conceal(160, out);
    EXPECT_NEAR(960, static_cast<double>(out.size() - before), 1);
    EXPECT_LT(10000, test::rms(out, before, 480));
}

TEST(TalkDecoder, MadeUpAudioHasABound)
{
    const auto decoder = TalkDecoder::make(track("PCMA", 8000), {8000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    decoder->conceal(0xffffffff, out);
    EXPECT_EQ(1600u, out.size());
}

TEST(TalkDecoder, AfterAResetNoEarlierAudioIsPlayed)
{
    const auto decoder = TalkDecoder::make(track("PCMA", 8000), {48000, 1});
    ASSERT_TRUE(decoder);
    Samples out;
    const Bytes loud(1600, 0xaa);
    EXPECT_TRUE(decoder->decode(loud.data(), loud.size(), out));
    decoder->reset();
    out.clear();
    decoder->conceal(160, out);
    EXPECT_EQ(0, test::rms(out, 0, out.size()));
}

TEST(TalkDecoder, CodecsThatCannotBeDecodedAreRefused)
{
    const PcmFormat format;
    EXPECT_FALSE(TalkDecoder::make(track("G726-32", 8000), format));
    EXPECT_FALSE(TalkDecoder::make(track("PCMU", 0), format));
    EXPECT_FALSE(TalkDecoder::make(track("PCMU", 8000, 0), format));
    for (const char* config : {"", "mode=AAC-hbr", "config=", "config=1", "config=14x8", "config=14",
                               "xconfig=1408", "config=ffff"})
    {
        EXPECT_FALSE(TalkDecoder::make(track("MPEG4-GENERIC", 16000, 1, config), format)) << config;
    }
}
