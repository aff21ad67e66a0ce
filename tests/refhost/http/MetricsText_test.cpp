#include "refhost/http/MetricsText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace refhost
{
namespace
{

TEST(MetricsText, WritesFamiliesWithTheirSamples)
{
    MetricsText out;
    out.family("a_total", "counter", "Things.");
    out.sample({{"camera", "1"}, {"stream", "0"}}, 3);
    out.sample({{"camera", "2"}, {"stream", "0"}}, 1e15);
    out.single("b_bytes", "gauge", "Size.", 0.25);
    EXPECT_EQ(
        out.take(),
        "# HELP a_total Things.\n# TYPE a_total counter\na_total{camera=\"1\",stream=\"0\"} 3\n"
        "a_total{camera=\"2\",stream=\"0\"} 1000000000000000\n# HELP b_bytes Size.\n# TYPE b_bytes gauge\n"
        "b_bytes 0.25\n");
    EXPECT_EQ(out.take(), "");
}

TEST(MetricsText, EscapesLabelsAndHelp)
{
    MetricsText out;
    out.family("a", "gauge", "One\\\nTwo \"x\"");
    out.sample({{"l", "\"\\\n"}}, 1);
    EXPECT_EQ(out.take(), "# HELP a One\\\\\\nTwo \"x\"\n# TYPE a gauge\na{l=\"\\\"\\\\\\n\"} 1\n");
}

TEST(MetricsText, BucketsOfAHistogramHoldThoseBelow)
{
    DurationHistogram histogram;
    for (const int milliseconds : {1, 2, 30, 20000})
    {
        histogram.add(std::chrono::milliseconds(milliseconds));
    }
    MetricsText out;
    out.histogram("a_seconds", "Times.", histogram.counts());
    const std::string text = out.take();
    EXPECT_EQ(
        text.find("# HELP a_seconds Times.\n# TYPE a_seconds histogram\na_seconds_bucket{le=\"0.001\"} 1\n"
                  "a_seconds_bucket{le=\"0.005\"} 2\na_seconds_bucket{le=\"0.01\"} 2\n"),
        0U)
        << text;
    const std::string end =
        "a_seconds_bucket{le=\"10\"} 3\na_seconds_bucket{le=\"+Inf\"} 4\na_seconds_sum 20.033\n"
        "a_seconds_count 4\n";
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

}  // namespace
}  // namespace refhost
