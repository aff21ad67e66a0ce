#include "refhost/capture/SyntheticSource.h"

#include <fmt/format.h>

#include "refhost/base/Log.h"
#include "refhost/capture/EncoderLine.h"
#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

bool haveElement(const char* name)
{
    return GstObjectPtr<GstElementFactory>(gst_element_factory_find(name)) != nullptr;
}

}  // namespace

SyntheticSource::SyntheticSource(const StreamConfig& config, const std::string& title, MediaSink& sink)
    : config_(config), title_(title), sink_(sink)
{
}

bool SyntheticSource::build(GstBin* pipeline, std::string& error)
{
    if (config_.videoCodec && !addVideo(pipeline, *config_.videoCodec, error))
    {
        return false;
    }
    if (config_.audioCodec && !addAudio(pipeline, *config_.audioCodec, error))
    {
        return false;
    }
    sink_.padsComplete();
    return true;
}

bool SyntheticSource::addVideo(GstBin* pipeline, Codec codec, std::string& error)
{
    std::string clock;
    if (haveElement("clockoverlay"))
    {
        clock =
            "clockoverlay name=clock time-format=\"%Y-%m-%d %H:%M:%S\" font-desc=\"Sans 18\" "
            "shaded-background=true halignment=left valignment=top ! ";
    }
    else
    {
        Log::warning("the time is not drawn into the video: the GStreamer element clockoverlay is missing");
    }
    const std::string line = fmt::format(
        "videotestsrc is-live=true pattern=smpte horizontal-speed=2 ! "
        "video/x-raw,format=I420,width={},height={},framerate={}/1,pixel-aspect-ratio=1/1 ! {}{}",
        config_.width, config_.height, config_.frameRate, clock, bareVideoEncoderLine(codec, config_));
    return addLine(pipeline, line, codec, error);
}

bool SyntheticSource::addAudio(GstBin* pipeline, Codec codec, std::string& error)
{
    const std::string line = fmt::format(
        "audiotestsrc is-live=true wave=sine freq=440 volume=0.1 samplesperbuffer=160 ! "
        "audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1 ! {}",
        audioEncoderLine(codec));
    return addLine(pipeline, line, codec, error);
}

bool SyntheticSource::addLine(GstBin* pipeline, const std::string& line, Codec codec, std::string& error)
{
    GstElement* bin = makeLaunchBin(line, UnlinkedPads::ghosted, error);
    if (bin == nullptr)
    {
        return false;
    }
    gst_bin_add(pipeline, bin);
    const GstObjectPtr<GstElement> clock(gst_bin_get_by_name(GST_BIN(bin), "clock"));
    if (clock)
    {
        g_object_set(clock.get(), "text", title_.c_str(), nullptr);
    }
    const GstObjectPtr<GstPad> pad(gst_element_get_static_pad(bin, "src"));
    sink_.addEncoded(pad.get(), codec);
    return true;
}

}  // namespace refhost
