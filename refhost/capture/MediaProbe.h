#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <gst/gst.h>

#include <memory>

#include "refhost/capture/CaptureClock.h"
#include "refhost/capture/DecodeTimes.h"
#include "refhost/capture/DeliveryGate.h"
#include "refhost/capture/MediaTap.h"
#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// Delivers the buffers that pass a pad to a tap as encoded units. Without sinks it costs nothing.
///
/// Threads: created and destroyed while no data pass the pad; runs on the pad's streaming thread.
class MediaProbe
{
public:
    MediaProbe(GstPad* pad, Codec codec, const CaptureClock& clock, std::shared_ptr<MediaTap> tap,
               DeliveryGate::Ptr gate);
    ~MediaProbe();
    MediaProbe(const MediaProbe&) = delete;
    MediaProbe& operator=(const MediaProbe&) = delete;

private:
    static GstPadProbeReturn onBuffer(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    void count(GstBuffer* buffer);
    void take(GstBuffer* buffer);
    bool updateFormat();

    GstObjectPtr<GstPad> pad_;
    Codec codec_;
    CaptureClock clock_;
    std::shared_ptr<MediaTap> tap_;
    DeliveryGate::Ptr gate_;
    gulong probe_ = 0;
    GstValuePtr<GstCaps> caps_;  ///< from which format_ was made
    std::shared_ptr<const MediaFormat> format_;
    DecodeTimes decodeTimes_;
};

}  // namespace refhost
