#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <gst/gst.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/base/Mutex.h"
#include "refhost/capture/DeliveryGate.h"
#include "refhost/capture/MediaSource.h"
#include "refhost/capture/MediaTrack.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/config/Config.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// One run of a camera stream: source, tracks and branches in one GStreamer pipeline, from start to stop.
///
/// Threads: start, setTaps, requestKeyFrame, stop and the destructor on one thread, which the source may block,
/// even forever; the others on any thread, without waiting.
class StreamPipeline : private MediaSink
{
public:
    /// As in SourceRun. Called on streaming threads; must not call the pipeline.
    struct Events
    {
        std::function<void()> described;
        std::function<void(const std::string& why)> ended;
        std::function<void(const std::string& why)> clockUnusable;
    };

    using Taps = SourceRun::Taps;

    /// \param title     the stream's name in the log and in the synthetic camera's frames
    /// \param attempt   as for MediaSource::make()
    /// \param mediaTap  receives the encoded media of every track
    StreamPipeline(const StreamConfig& config, const std::string& title, unsigned attempt,
                   std::shared_ptr<MediaTap> mediaTap, Events events);
    /// Stops, which may take forever when the source hangs. No event is called and nothing is delivered
    /// afterwards.
    ~StreamPipeline() override;

    /// \param[out] error  set on failure
    /// \returns false when the source cannot be opened
    bool start(const Taps& taps, std::string& error);

    /// Stops, unless stopped before.
    void stop();

    /// Reports the end of the source, as the source itself does.
    void reportFailure(const std::string& why)
    {
        sourceEnded(why, false);
    }

    /// Once this returns, no event is called, and nothing is delivered except units whose delivery has
    /// started. On any thread, without waiting.
    void mute();

    /// Sets the receivers of packets.
    void setTaps(const Taps& taps);

    void requestKeyFrame();

    /// Number of packets of all tracks since the start. On any thread.
    std::uint64_t packetCount() const
    {
        return gate_->packetCount();
    }

    /// True when the source could be reached but not by this transport.
    bool mayWorkByAnotherTransport() const
    {
        return otherTransport_;
    }

    /// As SourceRun::describe(). On any thread.
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const;

private:
    void addEncoded(GstPad* pad, Codec codec) override;
    void addPad(GstPad* pad, const GstCaps* caps, std::shared_ptr<const SourceClock> clock) override;
    void padsComplete() override;
    void sourceEnded(const std::string& why, bool otherTransport) override;
    void sourceClockUnusable(const std::string& why) override;

    static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, gpointer self);
    void addTrack(GstPad* pad, Codec codec, const std::string& line, bool encoded,
                  std::shared_ptr<const SourceClock> clock);
    bool makeTrack(const std::string& trackId, GstPad* pad, Codec codec, const std::string& line,
                   bool encoded, std::shared_ptr<const SourceClock> clock, std::string& error);
    void announceDescription();
    void dropPad(GstPad* pad);
    void onTrackCaps(Codec codec, bool encoded, const GstCaps* rtpCaps, const GstCaps* mediaCaps);
    static MediaTrack::Taps tapsOf(const Taps& taps, const std::string& trackId);

    StreamConfig config_;
    const std::string title_;
    const std::shared_ptr<MediaTap> mediaTap_;
    const DeliveryGate::Ptr gate_ = std::make_shared<DeliveryGate>();
    Mutex eventsMutex_;  ///< held while an event is called
    Events events_ OV_GUARDED_BY(eventsMutex_);
    GstObjectPtr<GstElement> pipeline_;
    bool stopped_ = false;
    std::unique_ptr<MediaSource> source_;
    std::atomic<bool> otherTransport_{false};

    /// Held while tracks are added and changed. A branch's thread never takes it.
    mutable Mutex tracksMutex_;
    std::map<std::string, std::unique_ptr<MediaTrack>> tracks_ OV_GUARDED_BY(tracksMutex_);
    Taps taps_ OV_GUARDED_BY(tracksMutex_);

    mutable Mutex descriptionMutex_;
    bool padsComplete_ OV_GUARDED_BY(descriptionMutex_) = false;
    std::map<std::string, SubMediaInfo> described_ OV_GUARDED_BY(descriptionMutex_);
    std::size_t trackCount_ OV_GUARDED_BY(descriptionMutex_) = 0;
};

}  // namespace refhost
