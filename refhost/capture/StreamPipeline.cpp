#include "refhost/capture/StreamPipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/capture/EncoderLine.h"
#include "refhost/media/GstCodec.h"
#include "refhost/media/TrackDescription.h"

namespace refhost
{

StreamPipeline::StreamPipeline(const StreamConfig& config, const std::string& title, unsigned attempt,
                               std::shared_ptr<MediaTap> mediaTap, Events events)
    : config_(config),
      title_(title),
      mediaTap_(std::move(mediaTap)),
      events_(std::move(events)),
      source_(MediaSource::make(config, title, attempt, *this))
{
}

StreamPipeline::~StreamPipeline()
{
    stop();
}

void StreamPipeline::stop()
{
    if (!pipeline_ || stopped_)
    {
        return;
    }
    stopped_ = true;
    source_->stop();
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    const GstObjectPtr<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
}

bool StreamPipeline::start(const Taps& taps, std::string& error)
{
    {
        const MutexLock guard(tracksMutex_);
        taps_ = taps;
    }
    pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
    // Every source uses the monotonic clock, which capture times are measured by.
    const GstObjectPtr<GstClock> clock(gst_system_clock_obtain());
    gst_pipeline_use_clock(GST_PIPELINE(pipeline_.get()), clock.get());
    // Fixed now, not with the first data: sources map their media to the running time before PLAYING.
    gst_element_set_start_time(pipeline_.get(), GST_CLOCK_TIME_NONE);
    gst_element_set_base_time(pipeline_.get(), gst_clock_get_time(clock.get()));
    const GstObjectPtr<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_sync_handler(bus.get(), &StreamPipeline::onMessage, this, nullptr);
    if (!source_->build(GST_BIN(pipeline_.get()), error))
    {
        return false;
    }
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
    {
        error = "the source cannot be started";
        return false;
    }
    return true;
}

void StreamPipeline::mute()
{
    gate_->shut();
    const MutexLock guard(eventsMutex_);
    events_ = Events();
}

void StreamPipeline::setTaps(const Taps& taps)
{
    const MutexLock guard(tracksMutex_);
    taps_ = taps;
    for (const auto& [trackId, track] : tracks_)
    {
        track->setTaps(tapsOf(taps_, trackId));
    }
}

void StreamPipeline::requestKeyFrame()
{
    const MutexLock guard(tracksMutex_);
    for (const auto& [trackId, track] : tracks_)
    {
        if (isVideo(track->codec()))
        {
            track->requestKeyFrame();
        }
    }
}

bool StreamPipeline::describe(bool partial, std::vector<SubMediaInfo>& tracks) const
{
    const MutexLock guard(descriptionMutex_);
    const bool complete = padsComplete_ && described_.size() == trackCount_;
    if (described_.empty() || !(complete || partial))
    {
        return false;
    }
    tracks.clear();
    for (const auto& [trackId, track] : described_)
    {
        tracks.push_back(track);
    }
    return true;
}

void StreamPipeline::addEncoded(GstPad* pad, Codec codec)
{
    addTrack(pad, codec, GstCodec::parserLine(codec), true, nullptr);
}

void StreamPipeline::addPad(GstPad* pad, const GstCaps* caps, std::shared_ptr<const SourceClock> clock)
{
    if (const std::optional<Codec> codec = GstCodec::of(caps))
    {
        const bool enabled = (isVideo(*codec) ? config_.videoCodec : config_.audioCodec).has_value();
        return enabled ? addTrack(pad, *codec, GstCodec::parserLine(*codec), false, std::move(clock))
                       : dropPad(pad);
    }
    const std::string name = caps == nullptr || gst_caps_get_size(caps) == 0
                                 ? std::string()
                                 : gst_structure_get_name(gst_caps_get_structure(caps, 0));
    const bool video = name == "video/x-raw";
    const std::optional<Codec> codec =
        video || name == "audio/x-raw" ? (video ? config_.videoCodec : config_.audioCodec) : std::nullopt;
    if (!codec)
    {
        return dropPad(pad);
    }
    const std::string encoder = video ? videoEncoderLine(*codec, config_, caps) : audioEncoderLine(*codec);
    addTrack(pad, *codec, encoder + " ! " + GstCodec::parserLine(*codec), true, std::move(clock));
}

void StreamPipeline::padsComplete()
{
    bool none = false;
    {
        const MutexLock guard(descriptionMutex_);
        padsComplete_ = true;
        none = trackCount_ == 0;
    }
    if (none)
    {
        sourceEnded("the source has neither video nor audio that can be sent", false);
        return;
    }
    announceDescription();
}

void StreamPipeline::sourceEnded(const std::string& why, bool otherTransport)
{
    otherTransport_ = otherTransport_ || otherTransport;
    const MutexLock guard(eventsMutex_);
    if (events_.ended)
    {
        events_.ended(why);
    }
}

void StreamPipeline::sourceClockUnusable(const std::string& why)
{
    const MutexLock guard(eventsMutex_);
    if (events_.clockUnusable)
    {
        events_.clockUnusable(why);
    }
}

void StreamPipeline::announceDescription()
{
    const MutexLock guard(eventsMutex_);
    if (events_.described)
    {
        events_.described();
    }
}

GstBusSyncReply StreamPipeline::onMessage(GstBus*, GstMessage* message, gpointer self)
{
    auto* pipeline = static_cast<StreamPipeline*>(self);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
    {
        GError* problem = nullptr;
        gst_message_parse_error(message, &problem, nullptr);
        pipeline->sourceEnded(problem->message, problem->domain == GST_STREAM_ERROR);
        g_clear_error(&problem);
    }
    else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS)
    {
        pipeline->sourceEnded("the source ended", false);
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void StreamPipeline::addTrack(GstPad* pad, Codec codec, const std::string& line, bool encoded,
                              std::shared_ptr<const SourceClock> clock)
{
    const std::string trackId = trackIdOf(codec);
    std::string error;
    if (!makeTrack(trackId, pad, codec, line, encoded, std::move(clock), error))
    {
        return error.empty() ? dropPad(pad) : sourceEnded(error, false);
    }
}

/// \returns false with an empty error when the track exists already
bool StreamPipeline::makeTrack(const std::string& trackId, GstPad* pad, Codec codec, const std::string& line,
                               bool encoded, std::shared_ptr<const SourceClock> clock, std::string& error)
{
    const MutexLock guard(tracksMutex_);
    if (tracks_.count(trackId) != 0)
    {
        return false;
    }
    MediaTrack& track =
        *tracks_
             .emplace(trackId, std::make_unique<MediaTrack>(CaptureClock{pipeline_.get(), std::move(clock)},
                                                            codec, mediaTap_, title_, gate_))
             .first->second;
    {
        const MutexLock description(descriptionMutex_);
        ++trackCount_;
    }
    const auto onCaps = [this, codec, encoded](const GstCaps* rtpCaps, const GstCaps* mediaCaps)
    { onTrackCaps(codec, encoded, rtpCaps, mediaCaps); };
    if (!track.open(pad, line, onCaps, error))
    {
        tracks_.erase(trackId);
        return false;
    }
    track.setTaps(tapsOf(taps_, trackId));
    return true;
}

void StreamPipeline::dropPad(GstPad* pad)
{
    GstElement* drain = gst_element_factory_make("fakesink", nullptr);
    g_object_set(drain, "sync", FALSE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
    gst_bin_add(GST_BIN(pipeline_.get()), drain);
    gst_element_sync_state_with_parent(drain);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(drain, "sink"));
    gst_pad_link(pad, entry.get());
}

void StreamPipeline::onTrackCaps(Codec codec, bool encoded, const GstCaps* rtpCaps, const GstCaps* mediaCaps)
{
    SubMediaInfo info;
    if (!describeTrack(rtpCaps, mediaCaps, trackIdOf(codec), info))
    {
        return;
    }
    const CodecInfo& known = infoOf(codec);
    if (known.maxSide > 0 && std::max(info.width, info.height) > known.maxSide)
    {
        return sourceEnded(fmt::format("frames of {0}x{1} pixels cannot be sent as {2}: at most {3}x{3}",
                                       info.width, info.height, known.name, known.maxSide),
                           false);
    }
    if (encoded)
    {
        info.bitRate = encodedBitRate(codec, config_);
    }
    {
        const MutexLock guard(descriptionMutex_);
        described_[info.trackId] = info;
    }
    announceDescription();
}

MediaTrack::Taps StreamPipeline::tapsOf(const Taps& taps, const std::string& trackId)
{
    MediaTrack::Taps own;
    for (const auto& [key, tap] : taps)
    {
        if (key.first == trackId)
        {
            own[key.second] = tap;
        }
    }
    return own;
}

}  // namespace refhost
