#include "refhost/capture/CaptureSource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

/// \returns why the node is not a usable camera; empty when it may be one
std::string problemOf(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || ::access(path.c_str(), R_OK | W_OK) != 0)
    {
        return std::strerror(errno);
    }
    return S_ISCHR(status.st_mode) ? std::string() : std::string("not a device");
}

}  // namespace

CaptureSource::CaptureSource(const StreamConfig& config, MediaSink& sink) : config_(config), sink_(sink) {}

bool CaptureSource::build(GstBin* pipeline, std::string& error)
{
    const std::string& node = config_.source.location;
    const std::string problem = problemOf(node);
    if (!problem.empty())
    {
        error = "cannot open " + node + ": " + problem;
        return false;
    }
    // Not the camera's own H.264: its size, bit rate and GOP are not the configured ones.
    GstElement* capture =
        makeLaunchBin("v4l2src name=camera do-timestamp=true ! capsfilter caps=video/x-raw;image/jpeg",
                      UnlinkedPads::ghosted, error);
    if (capture == nullptr)
    {
        return false;
    }
    gst_bin_add(pipeline, capture);
    const GstObjectPtr<GstElement> camera(gst_bin_get_by_name(GST_BIN(capture), "camera"));
    g_object_set(camera.get(), "device", node.c_str(), nullptr);
    DecodeStage::Events events;
    events.pad = [this](GstPad* pad, const GstCaps* caps) { sink_.addPad(pad, caps, nullptr); };
    events.complete = [this] { sink_.padsComplete(); };
    decoder_ = std::make_unique<DecodeStage>(pipeline, config_, std::move(events));
    const GstObjectPtr<GstPad> pad(gst_element_get_static_pad(capture, "src"));
    return decoder_->open(pad.get(), error);
}

}  // namespace refhost
