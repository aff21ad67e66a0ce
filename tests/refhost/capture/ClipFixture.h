#pragma once

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <string>

#include "refhost/media/GstHandles.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{

/// Media files that GStreamer makes in a folder that goes with the fixture.
class ClipFixture : public testing::Test
{
protected:
    static constexpr const char* frameLine =
        "videotestsrc num-buffers=50 ! video/x-raw,format=I420,width=160,height=90,framerate=25/1 ! "
        "x264enc speed-preset=ultrafast key-int-max=25 bframes=0 ! h264parse ! ";

    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    /// Runs a launch line to its end; "CLIP" in it is replaced by the path that is returned.
    std::string makeClip(std::string line, const std::string& name = "clip")
    {
        const std::string place = "CLIP";
        std::string path = folder / name;
        line.replace(line.find(place), place.size(), path);
        GError* problem = nullptr;
        const GstObjectPtr<GstElement> pipeline(
            GST_ELEMENT(gst_object_ref_sink(gst_parse_launch(line.c_str(), &problem))));
        EXPECT_EQ(problem, nullptr) << (problem != nullptr ? problem->message : "");
        gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
        const GstObjectPtr<GstBus> bus(gst_element_get_bus(pipeline.get()));
        const GstValuePtr<GstMessage> end(gst_bus_timed_pop_filtered(
            bus.get(), 20 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
        EXPECT_TRUE(end && GST_MESSAGE_TYPE(end.get()) == GST_MESSAGE_EOS) << line;
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        return path;
    }

    TemporaryFolder folder;
};

}  // namespace refhost
