#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "refhost/config/Config.h"
#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

class SourceClock;

/// Takes what a source gives. Threads: any; a source calls it from its streaming threads too.
class MediaSink
{
public:
    virtual ~MediaSink() = default;

    /// A pad inside the pipeline gives media that are coded as told, not parsed yet.
    virtual void addCoded(GstPad* pad, Codec codec) = 0;
    /// A pad gives media with these caps: coded, raw, or of no use.
    /// \param clock  says when the media were captured; null where their timestamps do
    virtual void addPad(GstPad* pad, const GstCaps* caps, std::shared_ptr<const SourceClock> clock) = 0;
    /// No further pad will come.
    virtual void padsComplete() = 0;
    /// The source came to its end or cannot go on.
    /// \param why       in plain words, may hold credentials
    /// \param otherWay  it may go over another transport
    virtual void sourceEnded(const std::string& why, bool otherTransport) = 0;
    /// The source's clock cannot be used: times of arrival count. \param why  in plain words
    virtual void sourceClockUnusable(const std::string& why) = 0;
};

/// What stands at the head of a stream's pipeline: one kind of SourceConfig.
///
/// It lives from before the pipeline's start until after its stop.
class MediaSource
{
public:
    virtual ~MediaSource() = default;

    /// Puts the source's elements into the pipeline, which does not run yet.
    /// \param[out] error  why not, in plain words
    /// \returns false when it cannot be done
    virtual bool build(GstBin* pipeline, std::string& error) = 0;

    /// The pipeline is about to stop: nothing of the source may wait any more.
    virtual void stop() {}

    /// \param title    for the synthetic camera's frame
    /// \param attempt    0 at first, another number to try another way to the same media, where there are
    /// several:
    ///               an RTSP camera over TCP or over UDP
    /// \param sink     outlives the source
    static std::unique_ptr<MediaSource> make(const StreamConfig& config, const std::string& title,
                                             unsigned attempt, MediaSink& sink);
};

}  // namespace refhost
