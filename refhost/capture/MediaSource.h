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

/// Receives a source's media and events. Threads: any, including streaming threads.
class MediaSink
{
public:
    virtual ~MediaSink() = default;

    /// A pad of the pipeline delivers encoded media of this codec, not parsed yet.
    virtual void addEncoded(GstPad* pad, Codec codec) = 0;
    /// A pad delivers media of these caps: encoded, raw, or unusable.
    /// \param clock  gives their capture times; null where timestamps are capture times
    virtual void addPad(GstPad* pad, const GstCaps* caps, std::shared_ptr<const SourceClock> clock) = 0;
    /// No further pad will be added.
    virtual void padsComplete() = 0;
    /// The source ended or failed.
    /// \param why             readable; may hold credentials
    /// \param otherTransport  another transport may work
    virtual void sourceEnded(const std::string& why, bool otherTransport) = 0;
    /// The source's clock is unusable: times of arrival are used.
    /// \param why  readable
    virtual void sourceClockUnusable(const std::string& why) = 0;
};

/// The head of a stream's pipeline, one class per SourceConfig::Kind.
///
/// Created before the pipeline's start and destroyed after its stop.
class MediaSource
{
public:
    virtual ~MediaSource() = default;

    /// Adds the source's elements to the pipeline. Requires: the pipeline does not run yet.
    /// \param[out] error  readable reason of the failure
    /// \returns false when the source cannot be built
    virtual bool build(GstBin* pipeline, std::string& error) = 0;

    /// The pipeline is about to stop: ends every wait of the source.
    virtual void stop() {}

    /// Creates the source of a stream.
    /// \param title    drawn into the synthetic camera's frames
    /// \param attempt  0 at first; other numbers select other transports to the same media, where there are
    ///                 several: TCP and UDP for an RTSP camera
    /// \param sink     outlives the source
    static std::unique_ptr<MediaSource> make(const StreamConfig& config, const std::string& title,
                                             unsigned attempt, MediaSink& sink);
};

}  // namespace refhost
