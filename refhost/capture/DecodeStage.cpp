#include "refhost/capture/DecodeStage.h"

#include <utility>

#include "refhost/media/GstCodec.h"

namespace refhost
{

DecodeStage::DecodeStage(GstBin* pipeline, const StreamConfig& config, Events events)
    : pipeline_(pipeline),
      codecs_(config.codecs()),
      byRtp_(config.source.isCamera()),
      events_(std::move(events))
{
}

bool DecodeStage::open(GstPad* source, std::string& error)
{
    GstElement* decoder = gst_element_factory_make("decodebin", nullptr);
    if (decoder == nullptr)
    {
        error = "the GStreamer element decodebin is missing";
        return false;
    }
    g_object_set(decoder, "caps", GstCodec::acceptedCaps(codecs_, byRtp_).get(), nullptr);
    g_signal_connect(decoder, "pad-added", G_CALLBACK(&DecodeStage::onPadAdded), this);
    g_signal_connect(decoder, "no-more-pads", G_CALLBACK(&DecodeStage::onNoMorePads), this);
    gst_bin_add(pipeline_, decoder);
    gst_element_sync_state_with_parent(decoder);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(decoder, "sink"));
    if (gst_pad_link(source, entry.get()) != GST_PAD_LINK_OK)
    {
        error = "the source's media cannot be demultiplexed";
        return false;
    }
    return true;
}

void DecodeStage::onPadAdded(GstElement*, GstPad* pad, gpointer self)
{
    if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC)
    {
        return;
    }
    GstValuePtr<GstCaps> caps(gst_pad_get_current_caps(pad));
    if (!caps)
    {
        caps.reset(gst_pad_query_caps(pad, nullptr));
    }
    static_cast<DecodeStage*>(self)->events_.pad(pad, caps.get());
}

void DecodeStage::onNoMorePads(GstElement*, gpointer self)
{
    static_cast<DecodeStage*>(self)->events_.complete();
}

}  // namespace refhost
