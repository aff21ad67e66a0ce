// GStreamer's payloaders and depayloaders are the other side.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Hex.h"
#include "refhost/media/GstHandles.h"
#include "refhost/rtp/RtpReader.h"
#include "refhost/rtp/payload/JpegHeader.h"
#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::pack;
using test::Reception;

constexpr GstClockTime patience = 20 * GST_SECOND;

struct Output
{
    std::vector<Bytes> buffers;
    GstValuePtr<GstCaps> caps;
};

/// A pipeline whose appsinks are read to the end.
class Line
{
public:
    explicit Line(const std::string& text)
    {
        gst_init(nullptr, nullptr);
        GError* error = nullptr;
        pipeline_.reset(gst_parse_launch(text.c_str(), &error));
        EXPECT_EQ(error, nullptr) << (error == nullptr ? "" : error->message);
        g_clear_error(&error);
        gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
    }

    ~Line()
    {
        gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    }

    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void push(const Bytes& bytes, GstClockTime time)
    {
        const GstObjectPtr<GstElement> in(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "in"));
        GstBuffer* const buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
        GST_BUFFER_PTS(buffer) = time;
        gst_app_src_push_buffer(GST_APP_SRC(in.get()), buffer);
    }

    void end()
    {
        const GstObjectPtr<GstElement> in(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "in"));
        gst_app_src_end_of_stream(GST_APP_SRC(in.get()));
    }

    Output read(const char* name)
    {
        const GstObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline_.get()), name));
        Output output;
        while (GstSample* const sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), patience))
        {
            GstBuffer* const buffer = gst_sample_get_buffer(sample);
            Bytes bytes(gst_buffer_get_size(buffer));
            gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
            output.buffers.push_back(bytes);
            output.caps.reset(gst_caps_ref(gst_sample_get_caps(sample)));
            gst_sample_unref(sample);
        }
        EXPECT_TRUE(gst_app_sink_is_eos(GST_APP_SINK(sink.get())));
        return output;
    }

private:
    GstObjectPtr<GstElement> pipeline_;
};

/// What a payloader's caps say, as a description says it.
PayloadDescription descriptionOf(const GstCaps* caps)
{
    const GstStructure* const fields = gst_caps_get_structure(caps, 0);
    PayloadDescription track;
    track.encodingName = gst_structure_get_string(fields, "encoding-name");
    gst_structure_get_int(fields, "clock-rate", &track.clockRate);
    for (int i = 0; i < gst_structure_n_fields(fields); ++i)
    {
        const char* const name = gst_structure_nth_field_name(fields, static_cast<guint>(i));
        const char* const value = gst_structure_get_string(fields, name);
        if (value != nullptr)
        {
            track.parameters[name] = value;
        }
    }
    return track;
}

Bytes codecDataOf(const GstCaps* caps)
{
    const GValue* const value = gst_structure_get_value(gst_caps_get_structure(caps, 0), "codec_data");
    GstBuffer* const buffer = value == nullptr ? nullptr : gst_value_get_buffer(value);
    Bytes bytes(buffer == nullptr ? 0 : gst_buffer_get_size(buffer));
    if (buffer != nullptr)
    {
        gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    }
    return bytes;
}

struct Case
{
    const char* name;
    const char* media;  ///< what makes the media, in the form of recordings
    const char* payloader;
    const char* depayloader;  ///< to the same form
};

class PayloadOracle : public testing::TestWithParam<Case>
{
protected:
    PayloadOracle()
    {
        Line line(std::string(GetParam().media) +
                  " ! tee name=t ! queue max-size-buffers=0 max-size-bytes=0 "
                  "max-size-time=0 ! appsink name=media sync=false  t. ! queue "
                  "max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! " +
                  GetParam().payloader + " mtu=1212 pt=96 ! appsink name=packets sync=false");
        media = line.read("media");
        packets = line.read("packets");
    }

    std::vector<DepacketizedUnit> received()
    {
        Reception reception(descriptionOf(packets.caps.get()));
        EXPECT_NE(reception.depacketizer, nullptr) << reception.error;
        if (!reception.depacketizer)
        {
            return {};
        }
        for (const Bytes& packet : packets.buffers)
        {
            RtpPacketView view;
            EXPECT_TRUE(RtpReader::read(packet.data(), packet.size(), view));
            EXPECT_EQ(
                reception.push({view.payload, view.payload + view.payloadSize}, view.timestamp, view.marker),
                "");
        }
        reception.depacketizer->flush();
        return std::move(reception.units);
    }

    Output media;
    Output packets;
};

/// What of a unit both sides must agree on: all but the headers of a JPEG.
Bytes essence(Codec codec, const Bytes& bytes)
{
    JpegHeader header;
    ByteSpan scan;
    if (codec != Codec::mjpeg || JpegHeader::read(bytes, header, scan) != nullptr)
    {
        return bytes;
    }
    Bytes all = header.quantizers;
    all.insert(all.end(), scan.begin(), scan.end());
    return all;
}

TEST_P(PayloadOracle, WhatItsPayloaderMakesComesBackAsItWas)
{
    const std::vector<DepacketizedUnit> units = received();
    ASSERT_EQ(units.size(), media.buffers.size());
    ASSERT_GT(units.size(), 5U);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        const Codec codec = units[i].format->codec;
        EXPECT_EQ(essence(codec, units[i].bytes), essence(codec, media.buffers[i])) << i;
        EXPECT_FALSE(units[i].damaged);
    }
    const Bytes record = codecDataOf(media.caps.get());
    const Bytes own = units[0].format->codecData;
    // Ours appends the chroma format of high profiles after the sets, too.
    ASSERT_GE(own.size(), record.size());
    EXPECT_TRUE(std::equal(record.begin(), record.end(), own.begin()));
    EXPECT_LE(own.size(), record.size() + 4);
}

TEST_P(PayloadOracle, ItsDepayloaderReadsWhatThePacketizerMakes)
{
    const std::vector<DepacketizedUnit> units = received();
    ASSERT_FALSE(units.empty());
    const MediaFormat& format = *units[0].format;
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(format, "trackID=0", track));
    const auto packetizer = Packetizer::make(format.codec, 300);
    std::string caps = "application/x-rtp,media=" + track.mediaType +
                       ",payload=96,clock-rate=" + std::to_string(track.clockRate) +
                       ",encoding-name=" + track.encodingName;
    std::size_t at = 0;
    while (at < track.formatParameters.size())
    {
        const std::size_t end = std::min(track.formatParameters.find(';', at), track.formatParameters.size());
        const std::string parameter = track.formatParameters.substr(at, end - at);
        const std::size_t equals = parameter.find('=');
        caps += "," + parameter.substr(0, equals) + "=(string)\"" + parameter.substr(equals + 1) + "\"";
        at = end + 1;
    }
    const std::unique_ptr<char, decltype(&g_free)> escaped(g_strescape(caps.c_str(), nullptr), &g_free);
    Line line("appsrc name=in format=time caps=\"" + std::string(escaped.get()) + "\" ! " +
              GetParam().depayloader + " ! appsink name=out sync=false");
    std::uint16_t sequence = 0;
    for (const DepacketizedUnit& unit : units)
    {
        EncodedUnit encoded;
        encoded.format = unit.format;
        encoded.bytes = unit.bytes;
        encoded.keyFrame = unit.keyFrame;
        const auto made = pack(*packetizer, encoded, unit.timestamp - units[0].timestamp);
        ASSERT_EQ(made.size(), 1U);
        for (const AccessUnit::Packet& packet : made[0]->packets)
        {
            Bytes bytes(made[0]->bytes.begin() + packet.offset,
                        made[0]->bytes.begin() + packet.offset + packet.size);
            bytes[1] |= 96U;
            writeBig16(bytes.data() + 2, sequence++);
            line.push(bytes, static_cast<GstClockTime>(made[0]->rtpTimestamp) * GST_SECOND /
                                 static_cast<GstClockTime>(track.clockRate));
        }
    }
    line.end();
    const Output out = line.read("out");
    ASSERT_EQ(out.buffers.size(), units.size());
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        EXPECT_EQ(essence(format.codec, out.buffers[i]), essence(format.codec, units[i].bytes)) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, PayloadOracle,
    testing::Values(
        Case{"H264",
             "videotestsrc num-buffers=12 pattern=ball ! video/x-raw,width=320,height=240,format=I420 ! "
             "x264enc aud=false "
             "key-int-max=4 bframes=0 threads=1 ! h264parse config-interval=-1 ! "
             "video/x-h264,stream-format=avc,alignment=au",
             "rtph264pay config-interval=0 aggregate-mode=zero-latency",
             "rtph264depay ! h264parse config-interval=-1 ! video/x-h264,stream-format=avc,alignment=au"},
        Case{"H264WithSlices",
             "videotestsrc num-buffers=12 pattern=snow ! video/x-raw,width=320,height=240,format=I420 ! "
             "x264enc aud=false "
             "key-int-max=4 bframes=2 threads=2 sliced-threads=true ! h264parse config-interval=-1 ! "
             "video/x-h264,stream-format=avc,alignment=au",
             "rtph264pay config-interval=0 aggregate-mode=none",
             "rtph264depay ! h264parse config-interval=-1 ! video/x-h264,stream-format=avc,alignment=au"},
        Case{"H265",
             "videotestsrc num-buffers=12 pattern=ball ! video/x-raw,width=320,height=240,format=I420 ! "
             "x265enc "
             "speed-preset=ultrafast key-int-max=4 option-string=\"bframes=0:pools=1:frame-threads=1\" ! "
             "h265parse "
             "config-interval=-1 ! video/x-h265,stream-format=hvc1,alignment=au",
             "rtph265pay config-interval=0 aggregate-mode=zero-latency",
             "rtph265depay ! h265parse config-interval=-1 ! video/x-h265,stream-format=hvc1,alignment=au"},
        Case{"Aac",
             "audiotestsrc num-buffers=20 wave=white-noise ! audio/x-raw,rate=16000,channels=1 ! avenc_aac "
             "bitrate=64000 ! aacparse ! audio/mpeg,mpegversion=4,stream-format=raw",
             "rtpmp4gpay", "rtpmp4gdepay"},
        Case{"Latm",
             "audiotestsrc num-buffers=20 wave=white-noise ! audio/x-raw,rate=16000,channels=1 ! avenc_aac "
             "bitrate=64000 ! aacparse ! audio/mpeg,mpegversion=4,stream-format=raw",
             "rtpmp4apay", "rtpmp4gdepay"},
        Case{"Mjpeg",
             "videotestsrc num-buffers=8 pattern=ball ! video/x-raw,width=320,height=240,format=I420 ! "
             "jpegenc "
             "quality=85",
             "rtpjpegpay", "rtpjpegdepay"}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace refhost
