#include "refhost/device/RtspSource.h"

namespace refhost
{
namespace
{

constexpr guint jitterLatency = 200;           // milliseconds that late packets are waited for
constexpr guint64 silenceTimeout = 5'000'000;  // microseconds without an answer or a packet
constexpr guint overUdp = 1;                   // GST_RTSP_LOWER_TRANS_UDP
constexpr guint overTcp = 4;                   // GST_RTSP_LOWER_TRANS_TCP

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
    g_object_set(client, "location", config_.source.location.c_str(), "latency", jitterLatency, "protocols",
                 transport_ == Transport::tcp ? overTcp : overUdp, "tcp-timeout", silenceTimeout, "timeout",
                 silenceTimeout, nullptr);
    g_signal_connect(client, "pad-added", G_CALLBACK(&RtspSource::onPadAdded), this);
    g_signal_connect(client, "no-more-pads", G_CALLBACK(&RtspSource::onNoMorePads), this);
    g_signal_connect(client, "select-stream", G_CALLBACK(&RtspSource::onSelectStream), this);
    gst_bin_add(pipeline, client);
    return true;
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
    return (kind == "video" && source->config_.videoCodec != "none") ||
           (kind == "audio" && source->config_.audioCodec != "none");
}

void RtspSource::addPad(GstPad* pad)
{
    DecodeStage::Events events;
    events.pad = [this](GstPad* media, const GstCaps* caps) { sink_.addPad(media, caps); };
    events.complete = [this] { partComplete(); };
    DecodeStage* decoder = nullptr;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        decoders_.push_back(std::make_unique<DecodeStage>(pipeline_, std::move(events)));
        decoder = decoders_.back().get();
        ++openParts_;
    }
    std::string error;
    if (!decoder->open(pad, error))
    {
        sink_.sourceEnded(error);
    }
}

void RtspSource::partComplete()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (--openParts_ != 0)
        {
            return;
        }
    }
    sink_.padsComplete();
}

}  // namespace refhost
