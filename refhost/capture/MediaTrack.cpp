#include "refhost/capture/MediaTrack.h"

#include <gst/video/video.h>

#include <utility>

#include "refhost/base/Log.h"
#include "refhost/capture/MediaSource.h"
#include "refhost/media/LaunchBin.h"
#include "refhost/media/PacketSize.h"

namespace refhost
{

MediaTrack::MediaTrack(const CaptureClock& clock, Codec codec, std::shared_ptr<MediaTap> mediaTap,
                       const std::string& title, DeliveryGate::Ptr gate)
    : clock_(clock),
      codec_(codec),
      mediaTap_(std::move(mediaTap)),
      name_(title + " " + trackIdOf(codec)),
      gate_(std::move(gate))
{
}

MediaTrack::~MediaTrack() = default;

bool MediaTrack::open(GstPad* pad, const std::string& line, PayloadBranch::OnCaps onCaps, std::string& error)
{
    GstElement* chain = makeLaunchBin(line, UnlinkedPads::ghosted, error);
    if (chain == nullptr)
    {
        return false;
    }
    tee_ = gst_element_factory_make("tee", nullptr);
    g_object_set(tee_, "allow-not-linked", TRUE, nullptr);
    gst_bin_add_many(GST_BIN(clock_.pipeline), chain, tee_, nullptr);
    gst_element_link(chain, tee_);
    // This branch always exists: its payloader provides the track's description.
    if (!addBranch(PacketSize::payload, std::move(onCaps), error))
    {
        return false;
    }
    const GstObjectPtr<GstPad> teeEntry(gst_element_get_static_pad(tee_, "sink"));
    mediaProbe_ = std::make_unique<MediaProbe>(teeEntry.get(), codec_, clock_, mediaTap_, gate_);
    gst_element_sync_state_with_parent(tee_);
    gst_element_sync_state_with_parent(chain);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(chain, "sink"));
    if (gst_pad_link(pad, entry.get()) != GST_PAD_LINK_OK)
    {
        error = "the source's media do not fit the stream's configuration";
        return false;
    }
    return true;
}

void MediaTrack::setTaps(const Taps& taps)
{
    for (auto branch = branches_.begin(); branch != branches_.end();)
    {
        const auto tap = taps.find(branch->first);
        branch->second->setTap(tap == taps.end() ? nullptr : tap->second);
        const bool needed = tap != taps.end() || branch->first == PacketSize::payload;
        branch = needed ? std::next(branch) : branches_.erase(branch);
    }
    for (const auto& [payloadSize, tap] : taps)
    {
        std::string error;
        if (branches_.count(payloadSize) == 0 && !addBranch(payloadSize, {}, error))
        {
            Log::error("{}: no packets of {} bytes: {}", name_, payloadSize, error);
            continue;
        }
        branches_[payloadSize]->setTap(tap);
    }
}

void MediaTrack::requestKeyFrame()
{
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(tee_, "sink"));
    gst_pad_push_event(entry.get(),
                       gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
}

bool MediaTrack::addBranch(int payloadSize, PayloadBranch::OnCaps onCaps, std::string& error)
{
    auto branch = std::make_unique<PayloadBranch>(PayloadBranch::Place{clock_, tee_, name_, gate_}, codec_,
                                                  payloadSize, std::move(onCaps));
    if (!branch->open(error))
    {
        return false;
    }
    branches_.emplace(payloadSize, std::move(branch));
    return true;
}

}  // namespace refhost
