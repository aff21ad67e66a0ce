#include "refhost/capture/PayloadBranch.h"

#include <future>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/media/GstCodec.h"
#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

/// Bounds of a branch's queue; beyond them the branch skips to the next key frame. The queue must neither
/// block the encoder, which other branches share, nor grow. It holds what a camera delivers at once after a
/// network outage as long as a source may be silent.
constexpr guint maxQueued = 1000;
constexpr guint maxQueuedBytes = 32'000'000;
constexpr guint minQueued = 10;

}  // namespace

PayloadBranch::PayloadBranch(const Place& place, Codec codec, int payloadSize, OnCaps onCaps)
    : place_(place),
      codec_(codec),
      payloadSize_(payloadSize),
      onCaps_(std::move(onCaps)),
      builder_(codec,
               [this](const AccessUnitPtr& unit)
               {
                   std::shared_ptr<PacketTap> tap;
                   {
                       const MutexLock guard(mutex_);
                       tap = tap_;
                   }
                   if (tap && place_.gate->isOpen())
                   {
                       tap->deliver(unit);
                   }
               })
{
}

PayloadBranch::~PayloadBranch()
{
    if (teePad_ == nullptr)
    {
        return;
    }
    unlinkFromTee();
    GstBin* bin = GST_BIN(place_.clock.pipeline);
    for (GstElement* element : {sink_, payloader_, queue_})
    {
        // Locked, so that a concurrent state change of the pipeline does not restart the element.
        gst_element_set_locked_state(element, TRUE);
        gst_element_set_state(element, GST_STATE_NULL);
        gst_bin_remove(bin, element);
    }
    gst_element_release_request_pad(place_.tee, teePad_);
    gst_object_unref(teePad_);
}

bool PayloadBranch::open(std::string& error)
{
    queue_ = gst_element_factory_make("queue", nullptr);
    payloader_ = makeLaunchElement(GstCodec::payloaderLine(codec_), error);
    sink_ = gst_element_factory_make("appsink", nullptr);
    if (queue_ == nullptr || payloader_ == nullptr || sink_ == nullptr)
    {
        error = payloader_ == nullptr ? error : "GStreamer's core elements are missing";
        for (GstElement* element : {queue_, payloader_, sink_})
        {
            g_clear_object(&element);
        }
        return false;
    }
    g_object_set(queue_, "max-size-buffers", 0U, "max-size-bytes", 0U, "max-size-time", guint64{0}, nullptr);
    g_object_set(payloader_, "mtu", static_cast<guint>(payloadSize_) + guint{AccessUnit::rtpHeaderSize},
                 "timestamp-offset", 0U, "seqnum-offset", 0, "auto-header-extension", FALSE, nullptr);
    g_object_set(sink_, "sync", FALSE, "async", FALSE, "buffer-list", TRUE, "qos", FALSE,
                 "enable-last-sample", FALSE, nullptr);
    GstAppSinkCallbacks callbacks = {};
    callbacks.new_sample = &PayloadBranch::onNewSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink_), &callbacks, this, nullptr);

    gst_bin_add_many(GST_BIN(place_.clock.pipeline), queue_, payloader_, sink_, nullptr);
    gst_element_link_many(queue_, payloader_, sink_, nullptr);
    const GstObjectPtr<GstPad> queueSink(gst_element_get_static_pad(queue_, "sink"));
    gst_pad_add_probe(queueSink.get(), static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER),
                      &PayloadBranch::onQueued, this, nullptr);
    if (onCaps_)
    {
        const GstObjectPtr<GstPad> payloaderSource(gst_element_get_static_pad(payloader_, "src"));
        gst_pad_add_probe(payloaderSource.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
                          &PayloadBranch::onPayloaderEvent, this, nullptr);
    }
    for (GstElement* element : {sink_, payloader_, queue_})
    {
        gst_element_sync_state_with_parent(element);
    }
    teePad_ = gst_element_request_pad_simple(place_.tee, "src_%u");
    gst_pad_link(teePad_, queueSink.get());
    return true;
}

void PayloadBranch::setTap(std::shared_ptr<PacketTap> tap)
{
    const MutexLock guard(mutex_);
    tap_.swap(tap);
}

void PayloadBranch::unlinkFromTee()
{
    using Done = std::promise<void>;
    auto done = std::make_shared<Done>();
    std::future<void> unlinked = done->get_future();
    const auto unlinkWhenIdle = [](GstPad* pad, GstPadProbeInfo*, gpointer data)
    {
        const GstObjectPtr<GstPad> peer(gst_pad_get_peer(pad));
        if (peer)
        {
            gst_pad_unlink(pad, peer.get());
            (*static_cast<std::shared_ptr<Done>*>(data))->set_value();
        }
        return GST_PAD_PROBE_REMOVE;
    };
    const auto forget = [](gpointer data) { delete static_cast<std::shared_ptr<Done>*>(data); };
    // The queue never blocks, so the pad is idle now or after the present push.
    gst_pad_add_probe(teePad_, GST_PAD_PROBE_TYPE_IDLE, unlinkWhenIdle, new std::shared_ptr<Done>(done),
                      forget);
    unlinked.wait();
}

GstFlowReturn PayloadBranch::onNewSample(GstAppSink* sink, gpointer self)
{
    const GstValuePtr<GstSample> sample(gst_app_sink_pull_sample(sink));
    if (sample)
    {
        static_cast<PayloadBranch*>(self)->takeSample(sample.get());
    }
    return GST_FLOW_OK;
}

GstPadProbeReturn PayloadBranch::onQueued(GstPad*, GstPadProbeInfo* info, gpointer self)
{
    return static_cast<PayloadBranch*>(self)->admits(GST_PAD_PROBE_INFO_BUFFER(info)) ? GST_PAD_PROBE_OK
                                                                                      : GST_PAD_PROBE_DROP;
}

GstPadProbeReturn PayloadBranch::onPayloaderEvent(GstPad*, GstPadProbeInfo* info, gpointer self)
{
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS)
    {
        auto* branch = static_cast<PayloadBranch*>(self);
        GstCaps* rtpCaps = nullptr;
        gst_event_parse_caps(event, &rtpCaps);
        // Read upstream of the payloader: its own sink pad has its caps only after this event.
        const GstObjectPtr<GstPad> queueSource(gst_element_get_static_pad(branch->queue_, "src"));
        const GstValuePtr<GstCaps> mediaCaps(gst_pad_get_current_caps(queueSource.get()));
        branch->onCaps_(rtpCaps, mediaCaps.get());
    }
    return GST_PAD_PROBE_OK;
}

bool PayloadBranch::admits(GstBuffer* buffer)
{
    guint queued = 0;
    guint bytes = 0;
    g_object_get(queue_, "current-level-buffers", &queued, "current-level-bytes", &bytes, nullptr);
    if (!skipping_ && queued < maxQueued && bytes < maxQueuedBytes)
    {
        return true;
    }
    if (!skipping_)
    {
        Log::debug("{}: packets of {} bytes fall behind: skipping to the next key frame", place_.name,
                   payloadSize_);
    }
    const bool key = !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    skipping_ = !(key && queued < minQueued);
    return !skipping_;
}

void PayloadBranch::takeSample(GstSample* sample)
{
    const GstSegment* segment = gst_sample_get_segment(sample);
    if (GstBufferList* list = gst_sample_get_buffer_list(sample))
    {
        const guint count = gst_buffer_list_length(list);
        for (guint i = 0; i < count; ++i)
        {
            takePacket(gst_buffer_list_get(list, i), segment);
        }
    }
    else if (GstBuffer* buffer = gst_sample_get_buffer(sample))
    {
        takePacket(buffer, segment);
    }
}

void PayloadBranch::takePacket(GstBuffer* buffer, const GstSegment* segment)
{
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ))
    {
        return;
    }
    const bool taken = builder_.add(map.data, map.size, place_.clock.at(GST_BUFFER_PTS(buffer), segment));
    gst_buffer_unmap(buffer, &map);
    place_.gate->countPacket();
    if (!taken && !refusalReported_)
    {
        refusalReported_ = true;
        Log::warning("{}: packets with more than a plain RTP header are dropped", place_.name);
    }
}

}  // namespace refhost
