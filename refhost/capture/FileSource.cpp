#include "refhost/capture/FileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "refhost/base/Descriptor.h"
#include "refhost/base/HostClock.h"
#include "refhost/capture/CaptureClock.h"
#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

/// \returns why the file cannot be read; empty when it can be
std::string problemOf(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
    {
        return std::strerror(errno);
    }
    struct stat status = {};
    const bool regular = ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
    return regular ? std::string() : std::string("not a file");
}

/// Launch line between a track of the file and the pad where its times are set. Containers store raw audio in
/// blocks of up to a second, which would leave in bursts.
const char* chainLine(const GstCaps* caps)
{
    const GstStructure* fields = gst_caps_get_structure(caps, 0);
    return gst_structure_has_name(fields, "audio/x-raw")
               ? "queue ! audioconvert ! audiobuffersplit output-buffer-duration=1/50"
               : "queue max-size-buffers=0 max-size-bytes=16000000 max-size-time=1000000000";
}

LoopTimeline::Time timeOf(const GstSegment& segment, GstClockTime time)
{
    if (!GST_CLOCK_TIME_IS_VALID(time))
    {
        return std::nullopt;
    }
    return Duration(static_cast<std::int64_t>(time) - static_cast<std::int64_t>(segment.start) +
                    static_cast<std::int64_t>(segment.base));
}

GstClockTime clockTimeOf(LoopTimeline::Time time)
{
    return time ? static_cast<GstClockTime>(time->count()) : GST_CLOCK_TIME_NONE;
}

}  // namespace

FileSource::FileSource(const StreamConfig& config, MediaSink& sink) : config_(config), sink_(sink) {}

FileSource::~FileSource()
{
    const MutexLock guard(mutex_);
    while (rewinding_)
    {
        changed_.wait(mutex_);
    }
}

bool FileSource::build(GstBin* pipeline, std::string& error)
{
    pipeline_ = pipeline;
    const std::string& path = config_.source.location;
    const std::string problem = problemOf(path);
    if (!problem.empty())
    {
        error = "cannot read " + path + ": " + problem;
        return false;
    }
    GstElement* reader = gst_element_factory_make("filesrc", nullptr);
    g_object_set(reader, "location", path.c_str(), nullptr);
    gst_bin_add(pipeline, reader);
    DecodeStage::Events events;
    events.pad = [this](GstPad* pad, const GstCaps* caps) { addPad(pad, caps); };
    events.complete = [this] { sink_.padsComplete(); };
    decoder_ = std::make_unique<DecodeStage>(pipeline, config_, std::move(events));
    const GstObjectPtr<GstPad> pad(gst_element_get_static_pad(reader, "src"));
    return decoder_->open(pad.get(), error);
}

void FileSource::stop()
{
    const MutexLock guard(mutex_);
    stopping_ = true;
    changed_.notifyAll();
}

void FileSource::addPad(GstPad* pad, const GstCaps* caps)
{
    std::string error;
    GstElement* chain = makeLaunchBin(chainLine(caps), UnlinkedPads::ghosted, error);
    if (chain == nullptr)
    {
        sink_.sourceEnded(error, false);
        return;
    }
    gst_bin_add(pipeline_, chain);
    Track* track = nullptr;
    {
        const MutexLock guard(mutex_);
        tracks_.push_back(std::make_unique<Track>());
        track = tracks_.back().get();
        track->source = this;
        track->number = timeline_.addTrack();
        gst_segment_init(&track->segment, GST_FORMAT_TIME);
        if (!seekPad_)
        {
            seekPad_.reset(GST_PAD(gst_object_ref(pad)));
        }
    }
    const GstObjectPtr<GstPad> exit(gst_element_get_static_pad(chain, "src"));
    constexpr auto everything =
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_DATA_DOWNSTREAM | GST_PAD_PROBE_TYPE_EVENT_FLUSH);
    gst_pad_add_probe(exit.get(), everything, &FileSource::onData, track, nullptr);
    sink_.addPad(exit.get(), caps, nullptr);
    gst_element_sync_state_with_parent(chain);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(chain, "sink"));
    gst_pad_link(pad, entry.get());
}

GstPadProbeReturn FileSource::onData(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    auto* track = static_cast<Track*>(data);
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) != 0)
    {
        return track->source->onBuffer(*track, info);
    }
    return GST_IS_EVENT(GST_PAD_PROBE_INFO_DATA(info)) ? track->source->onEvent(*track, info)
                                                       : GST_PAD_PROBE_OK;
}

GstPadProbeReturn FileSource::onBuffer(Track& track, GstPadProbeInfo* info)
{
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    LoopTimeline::Unit unit;
    unit.presentation = timeOf(track.segment, GST_BUFFER_PTS(buffer));
    unit.decoding = timeOf(track.segment, GST_BUFFER_DTS(buffer));
    if (GST_BUFFER_DURATION_IS_VALID(buffer))
    {
        unit.duration = Duration(static_cast<std::int64_t>(GST_BUFFER_DURATION(buffer)));
    }
    std::optional<LoopTimeline::Placed> placed;
    {
        const MutexLock guard(mutex_);
        placed = timeline_.place(track.number, unit, now());
    }
    if (!placed)
    {
        sink_.sourceEnded(
            "the file is an elementary stream without timestamps: put it into a container such as MP4",
            false);
        return GST_PAD_PROBE_DROP;
    }
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = clockTimeOf(placed->presentation);
    GST_BUFFER_DTS(buffer) = clockTimeOf(placed->decoding);
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return waitUntil(placed->due) ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

GstPadProbeReturn FileSource::onEvent(Track& track, GstPadProbeInfo* info)
{
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    switch (GST_EVENT_TYPE(event))
    {
        case GST_EVENT_SEGMENT:
        {
            gst_event_copy_segment(event, &track.segment);
            if (track.segmentSent)
            {
                return GST_PAD_PROBE_DROP;
            }
            track.segmentSent = true;
            GstSegment endless;
            gst_segment_init(&endless, GST_FORMAT_TIME);
            gst_event_unref(event);
            GST_PAD_PROBE_INFO_DATA(info) = gst_event_new_segment(&endless);
            return GST_PAD_PROBE_OK;
        }
        case GST_EVENT_EOS:
        {
            const MutexLock guard(mutex_);
            if (timeline_.endTrack(track.number) && !stopping_)
            {
                rewinding_ = true;
                const auto rewindLater = [](GstElement*, gpointer self)
                { static_cast<FileSource*>(self)->rewind(); };
                gst_element_call_async(GST_ELEMENT(pipeline_), rewindLater, this, nullptr);
            }
            return GST_PAD_PROBE_DROP;
        }
        // The rest of the pipeline must not see the next iteration's seek.
        case GST_EVENT_FLUSH_START:
        case GST_EVENT_FLUSH_STOP:
        case GST_EVENT_GAP:
        case GST_EVENT_STREAM_GROUP_DONE:
            return GST_PAD_PROBE_DROP;
        default:
            return GST_PAD_PROBE_OK;
    }
}

bool FileSource::waitUntil(Duration due)
{
    // The pipeline's clock is the monotonic one, as is steady_clock.
    const std::chrono::steady_clock::time_point moment(
        (baseTimeOf(GST_ELEMENT(pipeline_)) + due).time_since_epoch());
    const MutexLock guard(mutex_);
    while (!stopping_ && changed_.waitUntil(mutex_, moment))
    {
    }
    return !stopping_;
}

Duration FileSource::now() const
{
    return HostClock::system().now() - baseTimeOf(GST_ELEMENT(pipeline_));
}

void FileSource::rewind()
{
    const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT);
    GstEvent* seek = gst_event_new_seek(1.0, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, 0, GST_SEEK_TYPE_NONE,
                                        GST_CLOCK_TIME_NONE);
    const bool done = gst_pad_send_event(seekPad_.get(), seek);
    if (!done)
    {
        sink_.sourceEnded("the file cannot be restarted from its beginning", false);
    }
    const MutexLock guard(mutex_);
    rewinding_ = false;
    changed_.notifyAll();
}

}  // namespace refhost
