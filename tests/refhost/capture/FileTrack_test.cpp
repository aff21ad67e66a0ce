#include "refhost/capture/FileTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

struct Case
{
    const char* name;
    AVMediaType type;
    AVCodecID codec;
    const char* config;  ///< hexadecimal
    int rate;
    int channels;
    bool sendable;
    int rtpRate = 0;
};

class FileTrackTest : public testing::TestWithParam<Case>
{
protected:
    FileTrackTest() : context_(avformat_alloc_context()), stream(*avformat_new_stream(context_, nullptr))
    {
        const Case& each = GetParam();
        AVCodecParameters& parameters = *stream.codecpar;
        parameters.codec_type = each.type;
        parameters.codec_id = each.codec;
        parameters.sample_rate = each.rate;
        parameters.width = each.type == AVMEDIA_TYPE_VIDEO ? 320 : 0;
        parameters.height = each.type == AVMEDIA_TYPE_VIDEO ? 240 : 0;
        stream.avg_frame_rate = each.type == AVMEDIA_TYPE_VIDEO ? AVRational{25, 2} : AVRational{0, 0};
        if (each.channels > 0)
        {
            av_channel_layout_default(&parameters.ch_layout, each.channels);
        }
        const auto bytes = *bytesOfHex(each.config);
        parameters.extradata =
            static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        parameters.extradata_size = static_cast<int>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), parameters.extradata);
    }

    ~FileTrackTest() override
    {
        avformat_free_context(context_);
    }

    AVFormatContext* const context_;

    AVStream& stream;
};

constexpr const char* avcRecord =
    "0142c015ffe1001b6742c015da0507ec05a830303528000003000800000301e478b17501000468ce0fc8";
constexpr const char* byteStream =
    "000000016742c015da0507ec05a830303528000003000800000301e478b1750000000168ce0fc8";

constexpr Case cases[] = {
    {"H264", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, avcRecord, 0, 0, true},
    {"H264AsAByteStream", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, byteStream, 0, 0, false},
    {"H264WithoutRecord", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264, "", 0, 0, false},
    {"H265WithoutRecord", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_HEVC, "", 0, 0, false},
    {"Mjpeg", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MJPEG, "", 0, 0, true},
    {"Mpeg4", AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MPEG4, "000001b0", 0, 0, false},
    {"Aac", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, "1408", 16000, 1, true, 16000},
    {"AacWithAFasterExtension", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, "139056e5a0", 44100, 2, true, 22050},
    {"AacWithoutConfig", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, "", 16000, 1, false},
    {"Pcmu", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_MULAW, "", 8000, 1, true, 8000},
    {"PcmaOfARateThatRtpHasNoNumberFor", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_ALAW, "", 16000, 1, false},
    {"StereoPcma", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_ALAW, "", 8000, 2, false},
    {"Opus", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_OPUS, "", 48000, 2, true, 48000},
    {"SurroundOpus", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_OPUS, "", 48000, 6, false},
    {"RawAudio", AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_S16LE, "", 8000, 1, false}};

TEST_P(FileTrackTest, IsATrackWhereItCanBeSentAsItIs)
{
    const std::optional<FileTrack> track = FileTrack::of(stream);
    ASSERT_EQ(track.has_value(), GetParam().sendable);
    if (!track)
    {
        return;
    }
    const bool video = GetParam().type == AVMEDIA_TYPE_VIDEO;
    EXPECT_EQ(track->format->width, video ? 320 : 0);
    EXPECT_EQ(track->format->height, video ? 240 : 0);
    EXPECT_EQ(track->frameRate, video ? 12.5 : 0);
    EXPECT_EQ(track->format->sampleRate, GetParam().rtpRate);
    EXPECT_EQ(track->format->channels, GetParam().channels);
}

INSTANTIATE_TEST_SUITE_P(Tracks, FileTrackTest, testing::ValuesIn(cases),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace refhost
