#pragma once
// Tested by tests/refhost/ingest/CameraRelay_test.cpp.

#include <gst/gst.h>
#include <gst/rtsp/gstrtspmessage.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/MediaSource.h"
#include "refhost/capture/SenderReports.h"
#include "refhost/capture/SourceClock.h"

namespace refhost
{

/// An RTSP camera by its rtsp:// or rtsps:// URL, over UDP or with TLS, read by GStreamer. RtspTcpSource reads
/// cameras over plain TCP.
class RtspSource : public MediaSource
{
public:
    enum class Transport
    {
        tcp,
        udp
    };

    RtspSource(const StreamConfig& config, Transport transport, MediaSink& sink);

    bool build(GstBin* pipeline, std::string& error) override;

private:
    static void onPadAdded(GstElement* client, GstPad* pad, gpointer self);
    static void onNoMorePads(GstElement* client, gpointer self);
    static gboolean onBeforeSend(GstElement* client, GstRTSPMessage* message, gpointer self);
    static gboolean onSelectStream(GstElement* client, guint number, GstCaps* caps, gpointer self);

    /// One stream of RTP packets.
    struct Track
    {
        RtspSource* source;
        std::shared_ptr<SourceClock> clock;
        std::optional<Codec> codec;
    };

    static void onNewManager(GstElement* client, GstElement* manager, gpointer self);
    static void onManagerPad(GstElement* manager, GstPad* pad, gpointer self);
    static GstPadProbeReturn onReport(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onPacket(GstPad* pad, GstPadProbeInfo* info, gpointer track);

    void addPad(GstPad* pad);
    std::shared_ptr<SourceClock> addTrack(GstPad* pad);
    void takeReport(const SenderReports::Report& report);
    Duration now() const;
    void partComplete();

    StreamConfig config_;
    Transport transport_;
    MediaSink& sink_;
    GstBin* pipeline_ = nullptr;
    Mutex mutex_;
    std::vector<std::unique_ptr<DecodeStage>> decoders_ OV_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<Track>> tracks_ OV_GUARDED_BY(mutex_);
    std::set<std::string> sessions_ OV_GUARDED_BY(mutex_);  ///< RTP sessions that added a pad
    /// The client and each decoder, until they report that no further pad will be added.
    int openParts_ OV_GUARDED_BY(mutex_) = 1;
};

}  // namespace refhost
