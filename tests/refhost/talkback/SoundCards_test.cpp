#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "refhost/talkback/outputs/AlsaOutput.h"
#include "refhost/talkback/outputs/PulseOutput.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;

// What can be tested without a sound card and without a sound server.

TEST(AlsaOutput, MissingDeviceIsReported)
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

// alsa-lib itself records what reaches the device.
TEST(AlsaOutput, DeviceGetsEverySampleAtItsRateAndOnItsChannel)
{
    const TemporaryFolder folder;
    const std::string path = folder / "played.wav";
    const std::string config =
        "pcm.written { type file slave.pcm { type null } file \"" + path + "\" format \"wav\" }\n";
    test::writeFile(folder / "asound.conf", config.data(), config.size());
    setenv("ALSA_CONFIG_PATH", (folder / "asound.conf").c_str(), 1);
    const test::Samples audio = test::tone(500, 32000, 2 * 6400);
    {
        AlsaOutput output("written");
        std::string problem;
        ASSERT_TRUE(output.open({32000, 2}, problem)) << problem;
        for (std::size_t at = 0; at < audio.size(); at += 2 * 640)
        {
            ASSERT_TRUE(output.write(&audio[at], 640));
        }
    }
    unsetenv("ALSA_CONFIG_PATH");
    const test::Bytes file = test::readFile(path);
    ASSERT_LT(44u, file.size());
    EXPECT_EQ(2, file[22]) << "channels";
    EXPECT_EQ(32000, file[24] | file[25] << 8);
    EXPECT_EQ(audio, test::samplesOf(test::Bytes(file.begin() + 44, file.end())));
}

TEST(PulseOutput, MissingServerIsReportedSoon)
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
