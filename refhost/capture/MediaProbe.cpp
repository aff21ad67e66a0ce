#include "refhost/capture/MediaProbe.h"

#include <utility>

#include "refhost/media/ReorderDepth.h"

namespace refhost
{
namespace
{

std::vector<std::uint8_t> bytesOf(GstBuffer* buffer)
{
    std::vector<std::uint8_t> bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    return bytes;
}

std::shared_ptr<const MediaFormat> formatOf(Codec codec, const GstCaps* caps)
{
    auto format = std::make_shared<MediaFormat>();
    format->codec = codec;
    const GstStructure* fields = gst_caps_get_structure(caps, 0);
    gst_structure_get_int(fields, "width", &format->width);
    gst_structure_get_int(fields, "height", &format->height);
    gst_structure_get_int(fields, "rate", &format->sampleRate);
    gst_structure_get_int(fields, "channels", &format->channels);
    const GValue* codecData = gst_structure_get_value(fields, "codec_data");
    if (codecData != nullptr && GST_VALUE_HOLDS_BUFFER(codecData))
    {
        format->codecData = bytesOf(gst_value_get_buffer(codecData));
    }
    const CodecInfo& info = infoOf(codec);
    if (info.kind == MediaKind::audio && info.clockRate > 0)
    {
        format->sampleRate = info.clockRate;
    }
    if (format->codecData.empty() && info.makeCodecData != nullptr)
    {
        format->codecData = info.makeCodecData(format->channels);
    }
    return format;
}

}  // namespace

MediaProbe::MediaProbe(GstPad* pad, Codec codec, const CaptureClock& clock, std::shared_ptr<MediaTap> tap,
                       DeliveryGate::Ptr gate)
    : pad_(GST_PAD(gst_object_ref(pad))),
      codec_(codec),
      clock_(clock),
      tap_(std::move(tap)),
      gate_(std::move(gate))
{
    probe_ = gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &MediaProbe::onBuffer, this, nullptr);
}

MediaProbe::~MediaProbe()
{
    gst_pad_remove_probe(pad_.get(), probe_);
}

GstPadProbeReturn MediaProbe::onBuffer(GstPad*, GstPadProbeInfo* info, gpointer self)
{
    auto* probe = static_cast<MediaProbe*>(self);
    probe->count(GST_PAD_PROBE_INFO_BUFFER(info));
    if (!probe->tap_->isEmpty() && probe->gate_->isOpen())
    {
        probe->take(GST_PAD_PROBE_INFO_BUFFER(info));
    }
    else
    {
        probe->decodeTimes_.reset();
    }
    return GST_PAD_PROBE_OK;
}

void MediaProbe::count(GstBuffer* buffer)
{
    tap_->counts().add(gst_buffer_get_size(buffer));
    if (isVideo(codec_) && !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT) &&
        GST_BUFFER_PTS_IS_VALID(buffer))
    {
        tap_->counts().noteKeyFrame(
            MonotonicTime(Duration(static_cast<Duration::rep>(GST_BUFFER_PTS(buffer)))));
    }
}

void MediaProbe::take(GstBuffer* buffer)
{
    const GstValuePtr<GstEvent> event(gst_pad_get_sticky_event(pad_.get(), GST_EVENT_SEGMENT, 0));
    if (!event || !updateFormat())
    {
        return;
    }
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event.get(), &segment);
    auto unit = std::make_shared<EncodedUnit>();
    unit->format = format_;
    unit->bytes = bytesOf(buffer);
    unit->captureTime = clock_.at(GST_BUFFER_PTS(buffer), segment);
    unit->duration = Duration(
        GST_BUFFER_DURATION_IS_VALID(buffer) ? static_cast<std::int64_t>(GST_BUFFER_DURATION(buffer)) : 0);
    unit->keyFrame = !isVideo(codec_) || !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    // Derived for every source: few provide decode times, and those of RTP are times of arrival.
    unit->decodeTime = isVideo(codec_) ? decodeTimes_.next(unit->captureTime, unit->duration, unit->keyFrame)
                                       : unit->captureTime;
    tap_->deliver(unit);
}

bool MediaProbe::updateFormat()
{
    GstValuePtr<GstCaps> caps(gst_pad_get_current_caps(pad_.get()));
    if (!caps)
    {
        return false;
    }
    if (caps != caps_)
    {
        format_ = formatOf(codec_, caps.get());
        decodeTimes_.setDepth(ReorderDepth::of(*format_));
        caps_ = std::move(caps);
    }
    return true;
}

}  // namespace refhost
