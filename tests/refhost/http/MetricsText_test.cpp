#include "refhost/http/MetricsText.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace refhost
