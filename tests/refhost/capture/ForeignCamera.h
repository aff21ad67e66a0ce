#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <memory>
#include <string>
#include <thread>

namespace refhost
{

/// A third-party RTSP camera on a loopback port, with H.264 and PCMU by default.
class ForeignCamera
{
public:
    /// \param protocols  transports that clients may use
    /// \param port       0 for any
    /// \param media      launch line with the payloaders pay0, pay1 …
    explicit ForeignCamera(GstRTSPLowerTrans protocols, int port = 0, const std::string& media = usualMedia())
        : context_(g_main_context_new()),
          loop_(g_main_loop_new(context_, FALSE)),
          server_(gst_rtsp_server_new())
    {
        gst_rtsp_server_set_address(server_, "127.0.0.1");
        gst_rtsp_server_set_service(server_, std::to_string(port).c_str());
        GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
        gst_rtsp_media_factory_set_launch(factory, ("( " + media + " )").c_str());
        gst_rtsp_media_factory_set_protocols(factory, protocols);
        gst_rtsp_media_factory_set_shared(factory, TRUE);
        GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server_);
        gst_rtsp_mount_points_add_factory(mounts, "/live", factory);
        g_object_unref(mounts);
        gst_rtsp_server_attach(server_, context_);
        thread_ = std::thread([this] { g_main_loop_run(loop_); });
    }

    ~ForeignCamera()
    {
        const auto drop = [](GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; };
        gst_rtsp_server_client_filter(server_, drop, nullptr);
        g_main_loop_quit(loop_);
        thread_.join();
        g_object_unref(server_);
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }

    ForeignCamera(const ForeignCamera&) = delete;
    ForeignCamera& operator=(const ForeignCamera&) = delete;

    static std::string usualMedia()
    {
        return "videotestsrc is-live=true ! video/x-raw,format=I420,width=160,height=90,framerate=25/1 ! "
               "x264enc tune=zerolatency key-int-max=5 ! rtph264pay name=pay0 pt=100 "
               "audiotestsrc is-live=true ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! "
               "rtppcmupay name=pay1";
    }

    int port() const
    {
        return gst_rtsp_server_get_bound_port(server_);
    }

    std::string url() const
    {
        return "rtsp://127.0.0.1:" + std::to_string(port()) + "/live";
    }

private:
    GMainContext* context_;
    GMainLoop* loop_;
    GstRTSPServer* server_;
    std::thread thread_;
};

}  // namespace refhost
