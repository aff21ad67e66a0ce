#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/capture/CaptureClock.h"
#include "refhost/capture/DeliveryGate.h"
#include "refhost/capture/PacketTap.h"
#include "refhost/media/AccessUnitBuilder.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// One payloader of a track: tee ! queue ! payloader ! appsink. Its packets go to a tap as access units.
///
/// Created and destroyed while the pipeline runs. The destructor removes the branch from the pipeline and
/// returns once nothing is delivered.
class PayloadBranch
{
public:
    /// Called on the branch's thread with the caps of the payloader's output and input, at the start and at
    /// every change.
    using OnCaps = std::function<void(const GstCaps* rtpCaps, const GstCaps* mediaCaps)>;

    struct Place
    {
        CaptureClock clock;
        GstElement* tee;   ///< its parent is the clock's pipeline
        std::string name;  ///< of stream and track, in the log
        DeliveryGate::Ptr gate;
    };

    /// \param payloadSize  max bytes of RTP payload in a packet
    /// \param onCaps       may be empty
    PayloadBranch(const Place& place, Codec codec, int payloadSize, OnCaps onCaps);
    ~PayloadBranch();
    PayloadBranch(const PayloadBranch&) = delete;
    PayloadBranch& operator=(const PayloadBranch&) = delete;

    /// Creates the elements and links them to the tee.
    /// \param[out] error  set on failure
    /// \returns false when elements cannot be created; the branch does nothing then
    bool open(std::string& error);

    /// Sets the receiver of units; null for none.
    void setTap(std::shared_ptr<PacketTap> tap);

private:
    static GstFlowReturn onNewSample(GstAppSink* sink, gpointer self);
    static GstPadProbeReturn onQueued(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onPayloaderEvent(GstPad* pad, GstPadProbeInfo* info, gpointer self);

    void unlinkFromTee();
    void takeSample(GstSample* sample);
    void takePacket(GstBuffer* buffer, const GstSegment* segment);
    bool admits(GstBuffer* buffer);

    Place place_;
    Codec codec_;
    int payloadSize_;
    OnCaps onCaps_;
    AccessUnitBuilder builder_;
    GstElement* queue_ = nullptr;
    GstElement* payloader_ = nullptr;
    GstElement* sink_ = nullptr;
    GstPad* teePad_ = nullptr;
    bool skipping_ = false;         // the tee's thread only
    bool refusalReported_ = false;  // the branch's thread only
    Mutex mutex_;
    std::shared_ptr<PacketTap> tap_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
