#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <memory>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/LoopTimeline.h"
#include "refhost/capture/MediaSource.h"

namespace refhost
{

/// A media file that is played in a loop in real time. All iterations share one timeline without gaps.
class FileSource : public MediaSource
{
public:
    FileSource(const StreamConfig& config, MediaSink& sink);
    ~FileSource() override;

    bool build(GstBin* pipeline, std::string& error) override;
    void stop() override;

private:
    struct Track
    {
        FileSource* source = nullptr;
        std::size_t number = 0;
        GstSegment segment;  ///< in the file's own time
        bool segmentSent = false;
    };

    static GstPadProbeReturn onData(GstPad* pad, GstPadProbeInfo* info, gpointer track);

    void addPad(GstPad* pad, const GstCaps* caps);
    GstPadProbeReturn onBuffer(Track& track, GstPadProbeInfo* info);
    GstPadProbeReturn onEvent(Track& track, GstPadProbeInfo* info);
    bool waitUntil(Duration due);
    Duration now() const;
    void rewind();

    StreamConfig config_;
    MediaSink& sink_;
    GstBin* pipeline_ = nullptr;
    std::unique_ptr<DecodeStage> decoder_;
    GstObjectPtr<GstPad> seekPad_;

    Mutex mutex_;
    ConditionVariable changed_;
    std::vector<std::unique_ptr<Track>> tracks_ OV_GUARDED_BY(mutex_);
    LoopTimeline timeline_ OV_GUARDED_BY(mutex_);
    bool stopping_ OV_GUARDED_BY(mutex_) = false;
    bool rewinding_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost
