#include "refhost/playback/Packetiser.h"

#include <utility>

#include "refhost/media/GstCodec.h"
#include "refhost/media/LaunchBin.h"
#include "refhost/media/TrackDescription.h"

namespace refhost
{

Packetiser::Packetiser(Codec codec, int payloadSize)
    : codec_(codec),
      payloadSize_(payloadSize),
      builder_(codec,
               [this](const AccessUnitPtr& unit)
               {
                   if (made_ != nullptr)
                   {
                       made_->push_back(unit);
                   }
               })
{
}

Packetiser::~Packetiser()
{
    close();
}

void Packetiser::close()
{
    if (chain_)
    {
        gst_element_set_state(chain_.get(), GST_STATE_NULL);
        gst_pad_set_active(in_.get(), FALSE);
        gst_pad_set_active(out_.get(), FALSE);
    }
}

std::unique_ptr<Packetiser> Packetiser::make(Codec codec, int payloadSize, std::string& error)
{
    std::unique_ptr<Packetiser> made(new Packetiser(codec, payloadSize));
    return made->open(error) ? std::move(made) : nullptr;
}

bool Packetiser::open(std::string& error)
{
    const std::string line =
        GstCodec::parserLine(codec_) + " ! " + GstCodec::payloaderLine(codec_) + " name=payloader";
    GstElement* const chain = makeLaunchBin(line, UnlinkedPads::ghosted, error);
    if (chain == nullptr)
    {
        return false;
    }
    chain_.reset(GST_ELEMENT(gst_object_ref_sink(chain)));
    payloader_.reset(gst_bin_get_by_name(GST_BIN(chain), "payloader"));
    g_object_set(payloader_.get(), "mtu", static_cast<guint>(payloadSize_) + guint{AccessUnit::rtpHeaderSize},
                 "timestamp-offset", 0U, "seqnum-offset", 0, "auto-header-extension", FALSE, nullptr);
    in_.reset(GST_PAD(gst_object_ref_sink(gst_pad_new("in", GST_PAD_SRC))));
    out_.reset(GST_PAD(gst_object_ref_sink(gst_pad_new("out", GST_PAD_SINK))));
    gst_pad_set_element_private(out_.get(), this);
    gst_pad_set_chain_function(out_.get(), &Packetiser::onPacket);
    gst_pad_set_chain_list_function(out_.get(), &Packetiser::onPackets);
    gst_pad_set_event_function(out_.get(), &Packetiser::onEvent);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(chain, "sink"));
    const GstObjectPtr<GstPad> exit(gst_element_get_static_pad(chain, "src"));
    gst_pad_set_active(in_.get(), TRUE);
    gst_pad_set_active(out_.get(), TRUE);
    gst_pad_link(in_.get(), entry.get());
    gst_pad_link(exit.get(), out_.get());
    gst_element_set_state(chain, GST_STATE_PLAYING);
    gst_pad_push_event(in_.get(), gst_event_new_stream_start("recorded"));
    return true;
}

bool Packetiser::push(GstCaps* caps, GstValuePtr<GstBuffer> unit, std::vector<AccessUnitPtr>& out)
{
    if (!caps_ || !gst_caps_is_equal(caps_.get(), caps))
    {
        // After an error the elements reject everything else.
        if (broken_ && !reopen())
        {
            return false;
        }
        const bool first = !caps_;
        caps_.reset(gst_caps_ref(caps));
        broken_ = gst_pad_push_event(in_.get(), gst_event_new_caps(caps_.get())) == FALSE;
        if (first)
        {
            pushSegment();
        }
    }
    made_ = &out;
    const GstFlowReturn flow = gst_pad_push(in_.get(), unit.release());
    made_ = nullptr;
    broken_ = broken_ || flow != GST_FLOW_OK;
    return flow == GST_FLOW_OK;
}

bool Packetiser::reopen()
{
    close();
    caps_.reset();
    builder_.reset();
    broken_ = false;
    std::string error;
    return open(error);
}

void Packetiser::flush()
{
    builder_.reset();
    if (!caps_)
    {
        return;
    }
    gst_pad_push_event(in_.get(), gst_event_new_flush_start());
    gst_pad_push_event(in_.get(), gst_event_new_flush_stop(TRUE));
    pushSegment();
}

void Packetiser::pushSegment()
{
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(in_.get(), gst_event_new_segment(&segment));
}

bool Packetiser::describe(SubMediaInfo& out) const
{
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(payloader_.get(), "sink"));
    const GstValuePtr<GstCaps> mediaCaps(gst_pad_get_current_caps(entry.get()));
    return rtpCaps_ && describeTrack(rtpCaps_.get(), mediaCaps.get(), trackIdOf(codec_), out);
}

GstFlowReturn Packetiser::onPacket(GstPad* pad, GstObject*, GstBuffer* buffer)
{
    static_cast<Packetiser*>(gst_pad_get_element_private(pad))->take(buffer);
    gst_buffer_unref(buffer);
    return GST_FLOW_OK;
}

GstFlowReturn Packetiser::onPackets(GstPad* pad, GstObject*, GstBufferList* list)
{
    auto* const self = static_cast<Packetiser*>(gst_pad_get_element_private(pad));
    const guint count = gst_buffer_list_length(list);
    for (guint i = 0; i < count; ++i)
    {
        self->take(gst_buffer_list_get(list, i));
    }
    gst_buffer_list_unref(list);
    return GST_FLOW_OK;
}

gboolean Packetiser::onEvent(GstPad* pad, GstObject* parent, GstEvent* event)
{
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS)
    {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        static_cast<Packetiser*>(gst_pad_get_element_private(pad))->rtpCaps_.reset(gst_caps_ref(caps));
    }
    return gst_pad_event_default(pad, parent, event);
}

void Packetiser::take(GstBuffer* packet)
{
    GstMapInfo map;
    if (!gst_buffer_map(packet, &map, GST_MAP_READ))
    {
        return;
    }
    builder_.add(map.data, map.size,
                 MonotonicTime(Duration(static_cast<std::int64_t>(GST_BUFFER_PTS(packet)))));
    gst_buffer_unmap(packet, &map);
}

}  // namespace refhost
