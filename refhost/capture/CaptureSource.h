#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <memory>

#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/MediaSource.h"

namespace refhost
{

/// A camera of this machine behind Video4Linux, by its device node. The host encodes its video; it has no
/// audio.
class CaptureSource : public MediaSource
{
public:
    CaptureSource(const StreamConfig& config, MediaSink& sink);

    bool build(GstBin* pipeline, std::string& error) override;

private:
    StreamConfig config_;
    MediaSink& sink_;
    std::unique_ptr<DecodeStage> decoder_;
};

}  // namespace refhost
