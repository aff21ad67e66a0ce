#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "refhost/device/DecodeStage.h"
#include "refhost/device/MediaSource.h"

namespace refhost
{

/// Another camera, by its rtsp:// URL; its media are passed on as they are where this host can send them.
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
    static gboolean onSelectStream(GstElement* client, guint number, GstCaps* caps, gpointer self);

    void addPad(GstPad* pad);
    void partComplete();

    StreamConfig config_;
    Transport transport_;
    MediaSink& sink_;
    GstBin* pipeline_ = nullptr;
    std::mutex mutex_;
    std::vector<std::unique_ptr<DecodeStage>> decoders_;
    /// The client and each of the decoders have to say that no further pad will come.
    int openParts_ = 1;
};

}  // namespace refhost
