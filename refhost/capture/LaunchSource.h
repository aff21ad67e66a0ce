#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <atomic>
#include <memory>
#include <vector>

#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/MediaSource.h"

namespace refhost
{

/// A GStreamer launch line of the user, whose elements named "video" and "audio" end in open source pads.
/// Media of a live line leave at once; others are paced to real time.
class LaunchSource : public MediaSource
{
public:
    LaunchSource(const StreamConfig& config, MediaSink& sink);

    bool build(GstBin* pipeline, std::string& error) override;

private:
    static GstPadProbeReturn onFirstBuffer(GstPad* entry, GstPadProbeInfo* info, gpointer);

    bool tap(GstBin* pipeline, GstElement* line, const char* name, std::string& error);

    StreamConfig config_;
    MediaSink& sink_;
    std::vector<std::unique_ptr<DecodeStage>> decoders_;
    std::atomic<int> openParts_{1};
};

}  // namespace refhost
