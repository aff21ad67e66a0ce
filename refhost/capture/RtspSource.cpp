#include "refhost/capture/RtspSource.h"

#include <optional>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/CredentialMask.h"
#include "refhost/base/HostClock.h"
#include "refhost/capture/CaptureClock.h"
#include "refhost/capture/RtpPayloadCheck.h"

namespace refhost
{
namespace
{

constexpr guint jitterLatency = 200;           // milliseconds to wait for late packets
constexpr guint64 silenceTimeout = 5'000'000;  // microseconds without an answer or a packet
constexpr guint overUdp = 1;                   // GST_RTSP_LOWER_TRANS_UDP
constexpr guint overTcp = 4;                   // GST_RTSP_LOWER_TRANS_TCP
constexpr guint timestampsAlone = 0;           // RTP_JITTER_BUFFER_MODE_NONE: SourceClock places the packets
constexpr guint maxStreams = 4;                // of a session: each SSRC costs threads

}  // namespace

RtspSource::RtspSource(const StreamConfig& config, Transport transport, MediaSink& sink)
    : config_(config), transport_(transport), sink_(sink)
{
}

bool RtspSource::build(GstBin* pipeline, std::string& error)
{
    pipeline_ = pipeline;
    GstElement* client = gst_element_factory_make("rtspsrc", nullptr);
    if (client == nullptr)
    {
        error = "the GStreamer element rtspsrc is missing";
        return false;
    }
    g_object_set(client, "location", CredentialMask::escapedUserInfo(config_.source.location).c_str(),
                 "latency", jitterLatency, "buffer-mode", timestampsAlone, "protocols",
                 transport_ == Transport::tcp ? overTcp : overUdp, "tcp-timeout", silenceTimeout, "timeout",
                 silenceTimeout, nullptr);
    g_signal_connect(client, "new-manager", G_CALLBACK(&RtspSource::onNewManager), this);
    g_signal_connect(client, "pad-added", G_CALLBACK(&RtspSource::onPadAdded), this);
    g_signal_connect(client, "no-more-pads", G_CALLBACK(&RtspSource::onNoMorePads), this);
    g_signal_connect(client, "select-stream", G_CALLBACK(&RtspSource::onSelectStream), this);
    g_signal_connect(client, "before-send", G_CALLBACK(&RtspSource::onBeforeSend), nullptr);
    gst_bin_add(pipeline, client);
    return true;
}

/// Asks a server of this program for no buffered GOP: its frames would arrive at once, as if captured at once.
gboolean RtspSource::onBeforeSend(GstElement*, GstRTSPMessage* message, gpointer)
{
    GstRTSPMethod method = GST_RTSP_INVALID;
    if (gst_rtsp_message_get_type(message) == GST_RTSP_MESSAGE_REQUEST &&
        gst_rtsp_message_parse_request(message, &method, nullptr, nullptr) == GST_RTSP_OK &&
        method == GST_RTSP_SETUP)
    {
        gst_rtsp_message_add_header_by_name(message, "Live-Start", "key-frame");
    }
    return TRUE;
}

void RtspSource::onPadAdded(GstElement*, GstPad* pad, gpointer self)
{
    static_cast<RtspSource*>(self)->addPad(pad);
}

void RtspSource::onNoMorePads(GstElement*, gpointer self)
{
    static_cast<RtspSource*>(self)->partComplete();
}

gboolean RtspSource::onSelectStream(GstElement*, guint, GstCaps* caps, gpointer self)
{
    const auto* source = static_cast<RtspSource*>(self);
    const char* media = gst_structure_get_string(gst_caps_get_structure(caps, 0), "media");
    const std::string kind = media == nullptr ? "" : media;
    return (kind == "video" && source->config_.videoCodec.has_value()) ||
           (kind == "audio" && source->config_.audioCodec.has_value());
}

void RtspSource::onNewManager(GstElement*, GstElement* manager, gpointer self)
{
    g_object_set(manager, "max-streams", maxStreams, nullptr);
    g_signal_connect(manager, "pad-added", G_CALLBACK(&RtspSource::onManagerPad), self);
}

void RtspSource::onManagerPad(GstElement*, GstPad* pad, gpointer self)
{
    if (g_str_has_prefix(GST_OBJECT_NAME(pad), "recv_rtcp_sink_"))
    {
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &RtspSource::onReport, self, nullptr);
    }
}

GstPadProbeReturn RtspSource::onReport(GstPad*, GstPadProbeInfo* info, gpointer self)
{
    GstMapInfo map;
    GstBuffer* const buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (gst_buffer_map(buffer, &map, GST_MAP_READ))
    {
        auto* const source = static_cast<RtspSource*>(self);
        SenderReports::read(
            map.data, map.size, [source](const SenderReports::Report& report) { source->takeReport(report); },
            [](std::uint32_t) {});
        gst_buffer_unmap(buffer, &map);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn RtspSource::onPacket(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    const auto* const track = static_cast<Track*>(data);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ))
    {
        return GST_PAD_PROBE_DROP;
    }
    RtpPayloadCheck::Payload payload;
    const bool audio = RtpPayloadCheck::find(map.data, map.size, payload) &&
                       RtpPayloadCheck::isWellFormed(track->codec, payload);
    Duration time{};
    if (audio)
    {
        time = track->clock->place(readBig32(map.data + 4), readBig32(map.data + 8), track->source->now());
    }
    gst_buffer_unmap(buffer, &map);
    if (!audio)
    {
        return GST_PAD_PROBE_DROP;
    }
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time.count());
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return GST_PAD_PROBE_OK;
}

std::shared_ptr<SourceClock> RtspSource::addTrack(GstPad* pad)
{
    const GstValuePtr<GstCaps> caps(gst_pad_get_current_caps(pad));
    const GstStructure* const fields = caps ? gst_caps_get_structure(caps.get(), 0) : nullptr;
    int clockRate = 0;
    if (fields == nullptr || !gst_structure_get_int(fields, "clock-rate", &clockRate) || clockRate <= 0)
    {
        return nullptr;
    }
    const char* const media = gst_structure_get_string(fields, "media");
    const char* const encoding = gst_structure_get_string(fields, "encoding-name");
    const bool video = media != nullptr && std::string(media) == "video";
    auto track = std::make_unique<Track>();
    track->source = this;
    track->clock = std::make_shared<SourceClock>(RtpClock(static_cast<std::uint32_t>(clockRate)), video);
    track->codec = encoding == nullptr ? std::nullopt : codecEncodedAs(encoding);
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &RtspSource::onPacket, track.get(), nullptr);
    const MutexLock guard(mutex_);
    tracks_.push_back(std::move(track));
    return tracks_.back()->clock;
}

void RtspSource::takeReport(const SenderReports::Report& report)
{
    std::optional<Duration> placed;
    if (report.wall)
    {
        placed = *report.wall - HostClock::system().wall().mapping().at(baseTimeOf(GST_ELEMENT(pipeline_)));
    }
    bool wrong = false;
    {
        const MutexLock guard(mutex_);
        for (const std::unique_ptr<Track>& track : tracks_)
        {
            wrong = track->clock->report(report.timestamp, report.ssrc, placed, now()) ==
                        SourceClock::Report::wrongClock ||
                    wrong;
        }
    }
    if (wrong)
    {
        sink_.sourceClockUnusable("the camera's clock is wrong");
    }
}

Duration RtspSource::now() const
{
    return HostClock::system().now() - baseTimeOf(GST_ELEMENT(pipeline_));
}

void RtspSource::addPad(GstPad* pad)
{
    // recv_rtp_src_<session>_<SSRC>_<payload type>
    const std::string name = GST_OBJECT_NAME(pad);
    const std::string session = name.substr(0, name.rfind('_', name.rfind('_') - 1));
    bool fresh = false;
    {
        const MutexLock guard(mutex_);
        fresh = sessions_.insert(session).second;
    }
    if (!fresh)
    {
        sink_.sourceEnded("the camera restarted its media", false);
        return;
    }
    DecodeStage::Events events;
    events.pad = [this, clock = addTrack(pad)](GstPad* media, const GstCaps* caps)
    { sink_.addPad(media, caps, clock); };
    events.complete = [this] { partComplete(); };
    DecodeStage* decoder = nullptr;
    {
        const MutexLock guard(mutex_);
        decoders_.push_back(std::make_unique<DecodeStage>(pipeline_, config_, std::move(events)));
        decoder = decoders_.back().get();
        ++openParts_;
    }
    std::string error;
    if (!decoder->open(pad, error))
    {
        sink_.sourceEnded(error, false);
    }
}

void RtspSource::partComplete()
{
    {
        const MutexLock guard(mutex_);
        if (--openParts_ != 0)
        {
            return;
        }
    }
    sink_.padsComplete();
}

}  // namespace refhost
