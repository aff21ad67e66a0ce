#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C"
{
#include <libavformat/avformat.h>
}

namespace refhost
{
namespace test
{

/// What a demuxer that is not ours finds in an MP4 file.
class ReadMp4
{
public:
    struct Packet
    {
        double time = 0;  ///< of presentation, seconds
        double decode = 0;
        bool key = false;
        bool cut = false;  ///< decoded, not presented
        std::vector<std::uint8_t> bytes;
    };

    explicit ReadMp4(const std::string& path)
    {
        AVFormatContext* context = avformat_alloc_context();
        // Packets as the tables say; the media are made up.
        context->flags |= AVFMT_FLAG_NOFILLIN | AVFMT_FLAG_NOPARSE;
        if (avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr) < 0)
        {
            ADD_FAILURE() << path << " cannot be opened";
            return;
        }
        streams = context->nb_streams;
        AVPacket* packet = av_packet_alloc();
        while (av_read_frame(context, packet) >= 0)
        {
            const AVStream& stream = *context->streams[packet->stream_index];
            const double base = av_q2d(stream.time_base);
            const bool isVideo = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
            changes += av_packet_get_side_data(packet, AV_PKT_DATA_NEW_EXTRADATA, nullptr) != nullptr ? 1 : 0;
            (isVideo ? video : audio)
                .push_back({static_cast<double>(packet->pts) * base,
                            static_cast<double>(packet->dts) * base,
                            (packet->flags & AV_PKT_FLAG_KEY) != 0,
                            (packet->flags & AV_PKT_FLAG_DISCARD) != 0,
                            {packet->data, packet->data + packet->size}});
            av_packet_unref(packet);
        }
        av_packet_free(&packet);
        avformat_close_input(&context);
    }

    /// Times of what is presented, milliseconds.
    static std::vector<int> presented(const std::vector<Packet>& packets)
    {
        std::vector<int> times;
        for (const Packet& packet : packets)
        {
            if (!packet.cut)
            {
                times.push_back(static_cast<int>(std::lround(packet.time * 1000)));
            }
        }
        return times;
    }

    unsigned streams = 0;
    int changes = 0;  ///< of the decoders' parameters
    std::vector<Packet> video;
    std::vector<Packet> audio;
};

}  // namespace test
}  // namespace refhost
