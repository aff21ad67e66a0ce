#pragma once
// Tested by tests/refhost/capture/MediaSource_test.cpp.

#include <gst/gst.h>

#include <functional>
#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// Demultiplexes and parses a source's output to media that are sent without transcoding, and decodes others
/// to raw media.
class DecodeStage
{
public:
    struct Events
    {
        std::function<void(GstPad* pad, const GstCaps* caps)>
            pad;                         ///< a pad with media of these caps; on streaming threads
        std::function<void()> complete;  ///< no further pad will be added; on streaming threads
    };

    /// \param pipeline  outlives the stage, and is stopped before the stage is destroyed
    /// \param config    gives the stream's codecs and kind of source
    DecodeStage(GstBin* pipeline, const StreamConfig& config, Events events);
    DecodeStage(const DecodeStage&) = delete;
    DecodeStage& operator=(const DecodeStage&) = delete;

    /// Links the stage to a pad and brings it to the pipeline's state.
    /// \param[out] error  set on failure
    /// \returns false when the stage cannot be created or linked
    bool open(GstPad* source, std::string& error);

private:
    static void onPadAdded(GstElement* decoder, GstPad* pad, gpointer self);
    static void onNoMorePads(GstElement* decoder, gpointer self);

    GstBin* pipeline_;
    const std::vector<Codec> codecs_;
    const bool byRtp_;
    Events events_;
};

}  // namespace refhost
