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
/// Threads: start, setTaps, requestKeyFrame, stop and the destructor from one thread, which may have to wait
/// for the source, even for ever; the others from any, at once.
class StreamPipeline : private MediaSink
{
public:
    /// Called on streaming threads; may not call back.
    struct Events
    {
        std::function<void()> described;                    ///< describe() tells something new
        std::function<void(const std::string& why)> ended;  ///< it gives nothing any more; once or more often
        std::function<void(const std::string& why)>
            clockUnusable;  ///< times of arrival count; any number of times
    };

    using Taps = SourceRun::Taps;

    /// \param title  names the stream in the log and in the synthetic camera's frames
    /// \param attempt    as MediaSource::make() takes it
    /// \param mediaTap  gets the encoded media of every track
    StreamPipeline(const StreamConfig& config, const std::string& title, unsigned attempt,
                   std::shared_ptr<MediaTap> mediaTap, Events events);
    /// Stops, which may take for ever where the source hangs. No event is called and nothing is delivered
    /// after the return.
    ~StreamPipeline() override;

    /// \returns false with `error` set when the source cannot be opened
    bool start(const Taps& taps, std::string& error);

    /// Stops, as the destructor does otherwise.
    void stop();

    /// Reports that the source has ended, as it may do itself.
    void reportFailure(const std::string& why)
    {
        sourceEnded(why, false);
    }

    /// Has no event called any more, and next to nothing delivered: what is just being delivered may still
    /// be. From any thread, at once.
    void mute();

    /// Says which packets are wanted from now on.
    void setTaps(const Taps& taps);

    void requestKeyFrame();

    /// How many packets of any track were made since the start. From any thread.
    std::uint64_t packetCount() const
    {
        return gate_->packetCount();
    }

    /// True when the source could be reached but not in this way.
    bool mayWorkByAnotherTransport() const
    {
        return otherTransport_;
    }

    /// Tells the tracks.
    /// \param partial  true to be content with the tracks that are known by now, if there is one
    /// \param[out] tracks  filled on success
    /// \returns false while not all is known
    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const;

private:
    void addCoded(GstPad* pad, Codec codec) override;
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
