#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include "refhost/capture/MediaSource.h"

namespace refhost
{

/// The built-in camera: a moving test pattern with a title and the time of day, and a tone.
class SyntheticSource : public MediaSource
{
public:
    /// \param title  drawn before the time
    SyntheticSource(const StreamConfig& config, const std::string& title, MediaSink& sink);

    bool build(GstBin* pipeline, std::string& error) override;

private:
    bool addVideo(GstBin* pipeline, Codec codec, std::string& error);
    bool addAudio(GstBin* pipeline, Codec codec, std::string& error);
    bool addLine(GstBin* pipeline, const std::string& line, Codec codec, std::string& error);

    StreamConfig config_;
    std::string title_;
    MediaSink& sink_;
};

}  // namespace refhost
