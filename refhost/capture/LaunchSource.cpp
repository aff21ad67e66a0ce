#include "refhost/capture/LaunchSource.h"

#include "refhost/media/LaunchBin.h"

namespace refhost
{

LaunchSource::LaunchSource(const StreamConfig& config, MediaSink& sink) : config_(config), sink_(sink) {}

bool LaunchSource::build(GstBin* pipeline, std::string& error)
{
    GstElement* const line = makeLaunchBin(config_.source.location, UnlinkedPads::left, error);
    if (line == nullptr)
    {
        error = "the launch line is wrong: " + error;
        return false;
    }
    gst_bin_add(pipeline, line);
    if (!tap(pipeline, line, "video", error) || !tap(pipeline, line, "audio", error))
    {
        return false;
    }
    if (decoders_.empty())
    {
        error = "the launch line has no element named \"video\" or \"audio\"";
        return false;
    }
    if (--openParts_ == 0)
    {
        sink_.padsComplete();
    }
    return true;
}

bool LaunchSource::tap(GstBin* pipeline, GstElement* line, const char* name, std::string& error)
{
    const GstObjectPtr<GstElement> element(gst_bin_get_by_name(GST_BIN(line), name));
    if (!element)
    {
        return true;
    }
    const GstObjectPtr<GstPad> pad(gst_element_get_static_pad(element.get(), "src"));
    if (!pad || gst_pad_is_linked(pad.get()))
    {
        error = std::string("the launch line's element \"") + name + "\" has no open source pad";
        return false;
    }
    GstPad* exit = gst_ghost_pad_new(name, pad.get());
    gst_element_add_pad(line, exit);
    GstElement* pace = makeLaunchBin(
        "queue max-size-time=1000000000 max-size-bytes=0 max-size-buffers=0 ! clocksync name=pace",
        UnlinkedPads::ghosted, error);
    if (pace == nullptr)
    {
        return false;
    }
    gst_bin_add(pipeline, pace);
    const GstObjectPtr<GstPad> paceEntry(gst_element_get_static_pad(pace, "sink"));
    const GstObjectPtr<GstPad> paceExit(gst_element_get_static_pad(pace, "src"));
    gst_pad_link(exit, paceEntry.get());
    gst_pad_add_probe(paceEntry.get(), GST_PAD_PROBE_TYPE_BUFFER, &LaunchSource::onFirstBuffer, nullptr,
                      nullptr);
    DecodeStage::Events events;
    events.pad = [this](GstPad* media, const GstCaps* caps) { sink_.addPad(media, caps, nullptr); };
    events.complete = [this]
    {
        if (--openParts_ == 0)
        {
            sink_.padsComplete();
        }
    };
    ++openParts_;
    decoders_.push_back(std::make_unique<DecodeStage>(pipeline, config_, std::move(events)));
    return decoders_.back()->open(paceExit.get(), error);
}

GstPadProbeReturn LaunchSource::onFirstBuffer(GstPad* entry, GstPadProbeInfo*, gpointer)
{
    // Live media arrive in real time anyway. Pacing would delay them by the latency that the line declares,
    // which is meant for sinks that render them.
    const GstValuePtr<GstQuery> query(gst_query_new_latency());
    gboolean live = FALSE;
    if (gst_pad_peer_query(entry, query.get()))
    {
        gst_query_parse_latency(query.get(), &live, nullptr, nullptr);
    }
    if (live)
    {
        const GstObjectPtr<GstElement> bin(gst_pad_get_parent_element(entry));
        const GstObjectPtr<GstElement> pace(gst_bin_get_by_name(GST_BIN(bin.get()), "pace"));
        g_object_set(pace.get(), "sync", FALSE, nullptr);
    }
    return GST_PAD_PROBE_REMOVE;
}

}  // namespace refhost
