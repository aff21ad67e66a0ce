#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <map>
#include <memory>
#include <string>

#include "refhost/capture/MediaProbe.h"
#include "refhost/capture/PayloadBranch.h"

namespace refhost
{

/// One track of a running pipeline: encoder and parser, the tee, and a branch for each payload size.
///
/// Threads: one at a time.
class MediaTrack
{
public:
    using Taps = std::map<int, std::shared_ptr<PacketTap>>;

    /// \param clock     its pipeline owns all elements and outlives the track
    /// \param mediaTap  receives the encoded media
    /// \param title     the stream's name in the log
    /// \param gate      checked before every delivery
    MediaTrack(const CaptureClock& clock, Codec codec, std::shared_ptr<MediaTap> mediaTap,
               const std::string& title, DeliveryGate::Ptr gate);
    ~MediaTrack();

    /// Links the track to a pad.
    /// \param line        launch line that encodes, if needed, and parses the pad's media
    /// \param onCaps      called on the track's threads with the payloader's caps
    /// \param[out] error  set on failure
    /// \returns false when the track cannot be built
    bool open(GstPad* pad, const std::string& line, PayloadBranch::OnCaps onCaps, std::string& error);

    /// Keeps one branch for each of these payload sizes and for the default one, and no others.
    void setTaps(const Taps& taps);

    /// Requests a key frame from the track's encoder.
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
