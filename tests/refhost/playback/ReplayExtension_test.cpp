#include "refhost/playback/ReplayExtension.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <vector>

#include "refhost/media/GstHandles.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::int64_t ms = 1'000'000;

/// The extension of a packet as GStreamer's own reader parses it.
struct Parsed
{
    std::vector<GstClockTime> times;
    std::vector<bool> delta;
    std::vector<bool> discont;
};

GstFlowReturn take(GstPad* pad, GstObject*, GstBuffer* buffer)
{
    auto* parsed = static_cast<Parsed*>(gst_pad_get_element_private(pad));
    parsed->times.push_back(GST_BUFFER_PTS(buffer));
    parsed->delta.push_back(GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT));
    parsed->discont.push_back(GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT));
    gst_buffer_unref(buffer);
    return GST_FLOW_OK;
}

Parsed parse(const std::vector<AccessUnitPtr>& units)
{
    Parsed parsed;
    GstElement* element = gst_element_factory_make("rtponvifparse", nullptr);
    if (element == nullptr)
    {
        ADD_FAILURE() << "rtponvifparse is missing";
        return parsed;
    }
    gst_object_ref_sink(element);
    GstPad* in = GST_PAD(gst_object_ref_sink(gst_pad_new("in", GST_PAD_SRC)));
    GstPad* out = GST_PAD(gst_object_ref_sink(gst_pad_new("out", GST_PAD_SINK)));
    gst_pad_set_element_private(out, &parsed);
    gst_pad_set_chain_function(out, take);
    gst_pad_set_active(in, TRUE);
    gst_pad_set_active(out, TRUE);
    const GstObjectPtr<GstPad> entry(gst_element_get_static_pad(element, "sink"));
    const GstObjectPtr<GstPad> exit(gst_element_get_static_pad(element, "src"));
    gst_pad_link(in, entry.get());
    gst_pad_link(exit.get(), out);
    gst_element_set_state(element, GST_STATE_PLAYING);
    gst_pad_push_event(in, gst_event_new_stream_start("test"));
    GstCaps* caps = gst_caps_new_empty_simple("application/x-rtp");
    gst_pad_push_event(in, gst_event_new_caps(caps));
    gst_caps_unref(caps);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(in, gst_event_new_segment(&segment));
    for (const AccessUnitPtr& unit : units)
    {
        const auto& packet = unit->packets[0];
        gst_pad_push(in, gst_buffer_new_memdup(unit->bytes.data() + packet.offset, packet.size));
    }
    gst_element_set_state(element, GST_STATE_NULL);
    gst_object_unref(in);
    gst_object_unref(out);
    gst_object_unref(element);
    return parsed;
}

TEST(ReplayExtension, AnIndependentReaderUnderstandsIt)
{
    gst_init(nullptr, nullptr);
    const std::int64_t begin = 1'700'000'000'250 * ms;
    std::vector<AccessUnitPtr> units;
    for (int i = 0; i < 3; ++i)
    {
        ReplayExtension extension;
        extension.recorded = WallTime(Duration(begin + std::int64_t{i} * 40 * ms));
        extension.cleanPoint = i == 0;
        extension.discontinuity = i == 2;
        extension.playSequence = 9;
        units.push_back(extension.addTo(*makeUnit(0, 0, true, 2)));
    }
    const Parsed parsed = parse(units);
    ASSERT_EQ(parsed.times.size(), 3U);
    constexpr std::int64_t ntpOffset = 2'208'988'800'000 * ms;
    for (std::size_t i = 0; i < 3; ++i)
    {
        const auto expected = static_cast<double>(begin + ntpOffset + static_cast<std::int64_t>(i) * 40 * ms);
        EXPECT_NEAR(static_cast<double>(parsed.times[i]), expected, 1e4) << i;
    }
    EXPECT_EQ(parsed.delta, (std::vector<bool>{false, true, true}));
    EXPECT_TRUE(parsed.discont[2]);
    EXPECT_FALSE(parsed.discont[1]);
}

TEST(ReplayExtension, EverythingElseOfTheUnitStays)
{
    const AccessUnitPtr plain = makeUnit(7, 5, true, 3);
    const AccessUnitPtr extended = ReplayExtension().addTo(*plain);
    ASSERT_EQ(extended->packets.size(), plain->packets.size());
    EXPECT_EQ(extended->payloadBytes, plain->payloadBytes);
    EXPECT_EQ(extended->captureTime, plain->captureTime);
    EXPECT_EQ(extended->keyFrame, plain->keyFrame);
    EXPECT_EQ(extended->headerSize(0), 28U);
    EXPECT_EQ(extended->headerSize(1), 12U);
    for (std::size_t i = 0; i < plain->packets.size(); ++i)
    {
        const auto payload = [i](const AccessUnit& unit)
        {
            const auto begin = unit.bytes.begin() + unit.packets[i].offset + unit.headerSize(i);
            return std::vector<std::uint8_t>(begin, unit.bytes.begin() + unit.packets[i].offset +
                                                        static_cast<std::ptrdiff_t>(unit.packets[i].size));
        };
        EXPECT_EQ(payload(*extended), payload(*plain)) << i;
    }
}

}  // namespace
}  // namespace test
}  // namespace refhost
