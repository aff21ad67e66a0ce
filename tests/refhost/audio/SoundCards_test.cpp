#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "refhost/audio/AlsaOutput.h"
#include "refhost/audio/PulseOutput.h"

using namespace refhost;

// What can be seen without a sound card and without a sound server.

TEST(AlsaOutput, DeviceThatIsNotThereIsTold)
{
    AlsaOutput output("hw:CARD=nosuchcard");
    std::string problem;
    EXPECT_FALSE(output.open({48000, 1}, problem));
    EXPECT_FALSE(problem.empty());
    EXPECT_FALSE(output.queued());
    const std::int16_t sample = 1;
    EXPECT_FALSE(output.write(&sample, 1));
}

TEST(AlsaOutput, NamesTheDefaultDevice)
{
    EXPECT_EQ("ALSA device default", AlsaOutput("").name());
}

TEST(AlsaOutput, PlaysOnADeviceThatTakesEverything)
{
    AlsaOutput output("null");
    std::string problem;
    for (int i = 0; i < 2; ++i)
    {
        ASSERT_TRUE(output.open({48000, 2}, problem)) << problem;
        const std::vector<std::int16_t> samples(2 * 960);
        EXPECT_TRUE(output.queued());
        EXPECT_TRUE(output.write(samples.data(), 960));
        EXPECT_TRUE(output.queued());
        output.close();
        EXPECT_FALSE(output.queued());
    }
}

TEST(PulseOutput, ServerThatIsNotThereIsToldSoon)
{
    setenv("PULSE_SERVER", "unix:/nonexistent/pulse", 1);
    PulseOutput output("");
    std::string problem;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(output.open({48000, 1}, problem));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ("Connection refused", problem);
    EXPECT_FALSE(output.queued());
    const std::int16_t sample = 1;
    EXPECT_FALSE(output.write(&sample, 1));
    output.close();
}
