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

/// Takes apart whatever a source gives, down to media that are sent as they are, or else to raw media.
class DecodeStage
{
public:
    struct Events
    {
        std::function<void(GstPad* pad, const GstCaps* caps)>
            pad;                         ///< media of these caps come; streaming threads
        std::function<void()> complete;  ///< no further pad will come; streaming threads
    };

    /// \param pipeline  outlives the stage, and is stopped before the stage ends
    /// \param config  names the stream's codecs and source
    DecodeStage(GstBin* pipeline, const StreamConfig& config, Events events);
    DecodeStage(const DecodeStage&) = delete;
    DecodeStage& operator=(const DecodeStage&) = delete;

    /// Links the stage behind a pad and lets it run as the pipeline does.
    /// \returns false with `error` set when it cannot be done
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
