#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "refhost/capture/DecodeStage.h"
#include "refhost/capture/LoopTimeline.h"
#include "refhost/capture/MediaSource.h"

namespace refhost
{

/// A media file that is played in a loop, in real time and without a seam: all rounds stand on one timeline.
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
        GstSegment segment;  ///< of the file's own time
        bool segmentSent = false;
    };

    static GstPadProbeReturn onData(GstPad* pad, GstPadProbeInfo* info, gpointer track);

    void addPad(GstPad* pad, const GstCaps* caps);
    GstPadProbeReturn onBuffer(Track& track, GstPadProbeInfo* info);
    GstPadProbeReturn onEvent(Track& track, GstPadProbeInfo* info);
    bool waitUntil(std::int64_t due);
    std::int64_t now() const;
    void rewind();

    StreamConfig config_;
    MediaSink& sink_;
    GstBin* pipeline_ = nullptr;
    std::unique_ptr<DecodeStage> decoder_;
    GstObjectPtr<GstPad> seekPad_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::unique_ptr<Track>> tracks_;
    LoopTimeline timeline_;
    bool stopping_ = false;
    bool rewinding_ = false;
};

}  // namespace refhost
