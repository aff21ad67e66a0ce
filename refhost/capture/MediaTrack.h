#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <map>
#include <memory>
#include <string>

#include "refhost/capture/MediaProbe.h"
#include "refhost/capture/PayloadBranch.h"

namespace refhost
{

/// One track of a running pipeline: what codes and parses it, the tee, and a branch for each payload size.
///
/// Threads: one at a time.
class MediaTrack
{
public:
    using Taps = std::map<int, std::shared_ptr<PacketTap>>;

    /// \param clock  its pipeline holds everything and outlives the track
    /// \param mediaTap  gets the encoded media
    /// \param title  names the stream in the log
    /// \param gate  all deliveries go through it
    MediaTrack(const CaptureClock& clock, Codec codec, std::shared_ptr<MediaTap> mediaTap,
               const std::string& title, DeliveryGate::Ptr gate);
    ~MediaTrack();

    /// Links the track behind a pad.
    /// \param line  launch line that makes the coded and parsed form of what the pad gives
    /// \param onCaps  called on the track's threads with what the payloader makes
    /// \returns false with `error` set when it cannot be done
    bool open(GstPad* pad, const std::string& line, PayloadBranch::OnCaps onCaps, std::string& error);

    /// Sees to it that there is a branch for each of these payload sizes and for no other but the usual.
    void setTaps(const Taps& taps);

    /// Asks what codes the track for a key frame.
    void requestKeyFrame();

    Codec codec() const
    {
        return codec_;
    }

private:
    bool addBranch(int payloadSize, PayloadBranch::OnCaps onCaps, std::string& error);

    CaptureClock clock_;
    Codec codec_;
    std::shared_ptr<MediaTap> mediaTap_;
    std::string name_;  ///< of stream and track, in the log
    DeliveryGate::Ptr gate_;
    std::unique_ptr<MediaProbe> mediaProbe_;
    GstElement* tee_ = nullptr;  // owned by the pipeline
    std::map<int, std::unique_ptr<PayloadBranch>> branches_;
};

}  // namespace refhost
