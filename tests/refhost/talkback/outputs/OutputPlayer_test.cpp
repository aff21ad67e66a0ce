#include "refhost/talkback/outputs/OutputPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "support/StatusCode.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/AudioSamples.h"
#include "tests/refhost/talkback/CapturedOutput.h"

using namespace refhost;
using refhost::test::ManualClock;
using refhost::test::Samples;

namespace
{

const PcmFormat format{48000, 1};

// The script of an output, and what it received.
struct Device
{
    bool opens = true;
    bool works = true;
    std::size_t queued = 0;
    bool open = false;
    Samples written;
};

class FakeOutput : public AudioOutput
{
public:
    explicit FakeOutput(Device& device) : device_(device) {}

    std::string name() const override
    {
        return "fake";
    }
    bool open(const PcmFormat&, std::string& problem) override
    {
        problem = "unplugged";
        device_.open = device_.opens;
        return device_.opens;
    }
    std::optional<std::size_t> queued() override
    {
        return device_.works ? std::optional<std::size_t>(device_.queued) : std::nullopt;
    }
    bool write(const std::int16_t* samples, std::size_t frames) override
    {
        device_.written.insert(device_.written.end(), samples, samples + frames);
        return device_.works;
    }
    void close() override
    {
        device_.open = false;
    }

private:
    Device& device_;
};

class OutputPlayerTest : public testing::Test
{
protected:
    ~OutputPlayerTest() noexcept override {}

    int play(const Samples& samples)
    {
        return player_.play(reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size() * 2);
    }

    int playASecond()
    {
        int result = 0;
        for (int i = 0; i < 10; ++i)
        {
            result = std::min(result, play(Samples(4800, 1)));
        }
        return result;
    }

    static int countOf(const std::string& word, const std::string& text)
    {
        int count = 0;
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        {
            ++count;
        }
        return count;
    }

    Device device_;
    OutputPlayer player_{std::make_unique<FakeOutput>(device_), format, std::chrono::milliseconds(40)};
};

}  // namespace

TEST_F(OutputPlayerTest, PlaysOnlyWhileItIsOpen)
{
    EXPECT_EQ(statusPlayerUnusable, play({1}));
    ASSERT_EQ(0, player_.open());
    EXPECT_EQ(0, play({1}));
    player_.close();
    EXPECT_FALSE(device_.open);
    EXPECT_EQ(statusPlayerUnusable, play({2}));
    EXPECT_EQ(1, device_.written.back());
}

TEST_F(OutputPlayerTest, OutputThatDoesNotOpenIsReportedAndMayBeTriedAgain)
{
    device_.opens = false;
    EXPECT_EQ(statusPlayerUnusable, player_.open());
    EXPECT_EQ(statusPlayerUnusable, player_.open());
    EXPECT_EQ(statusPlayerUnusable, play({1}));
    device_.opens = true;
    EXPECT_EQ(0, player_.open());
    EXPECT_EQ(0, play({1}));
}

TEST_F(OutputPlayerTest, OutputThatVanishesIsAFault)
{
    ASSERT_EQ(0, player_.open());
    ASSERT_EQ(0, playASecond());
    device_.works = false;
    EXPECT_EQ(statusPlayerUnusable, play({2}));
    player_.close();
    device_.works = true;
    ASSERT_EQ(0, player_.open()) << "at once";
    EXPECT_EQ(0, play({3}));
}

TEST_F(OutputPlayerTest, OutputThatFailsRightAfterOpeningBacksOff)
{
    ASSERT_EQ(0, player_.open());
    for (int i = 0; i < 3; ++i)
    {
        device_.works = false;
        EXPECT_EQ(statusPlayerUnusable, play({1}));
        player_.close();
        device_.works = true;
        EXPECT_EQ(statusPlayerUnusable, player_.open()) << "nobody spins";
        EXPECT_FALSE(device_.open);
        ASSERT_EQ(0, player_.open());
    }
}

TEST_F(OutputPlayerTest, FlappingOutputIsLoggedOnce)
{
    testing::internal::CaptureStderr();
    player_.open();
    for (int i = 0; i < 10; ++i)
    {
        device_.works = false;
        play({1});
        player_.close();
        device_.works = true;
        player_.open();
        player_.open();
    }
    const std::string failing = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1, countOf("is open", failing)) << failing;
    EXPECT_EQ(1, countOf("failed", failing));
    EXPECT_EQ(0, countOf("is closed", failing));
    testing::internal::CaptureStderr();
    playASecond();
    player_.close();
    const std::string recovered = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1, countOf("plays again", recovered)) << recovered;
    EXPECT_EQ(1, countOf("is closed", recovered));
}

TEST_F(OutputPlayerTest, StartsAheadAgainAfterEachOpening)
{
    for (int i = 0; i < 2; ++i)
    {
        device_.written.clear();
        ASSERT_EQ(0, player_.open());
        ASSERT_EQ(0, play({7}));
        EXPECT_EQ(1921u, device_.written.size());
        EXPECT_EQ(7, device_.written.back());
    }
}

TEST_F(OutputPlayerTest, AudioThatComesTooFastIsDroppedAndNoFault)
{
    ASSERT_EQ(0, player_.open());
    device_.queued = 48000;
    EXPECT_EQ(0, play({1}));
    EXPECT_TRUE(device_.written.empty());
}

TEST_F(OutputPlayerTest, EmptyBlockAndHalfASampleAreIgnored)
{
    ASSERT_EQ(0, player_.open());
    const std::uint8_t half[1] = {1};
    EXPECT_EQ(0, player_.play(half, 0));
    EXPECT_EQ(0, player_.play(half, 1));
    EXPECT_TRUE(device_.written.empty());
}

// Packets of 20 ms that arrive up to 15 ms late, at a worker that runs every 10 ms.
TEST(OutputPlayerDelay, UnevenPacketsArePlayedWithoutAHoleAndWithin120Milliseconds)
{
    ManualClock clock;
    Samples played;
    constexpr int packets = 500;
    const Samples audio = test::tone(437, 48000, packets * 960);
    OutputPlayer player(std::make_unique<test::CapturedOutput>(clock, played), format,
                        std::chrono::milliseconds(60));
    ASSERT_EQ(0, player.open());
    int next = 0;
    for (int now = 0; next < packets; now += 10, clock.advance(std::chrono::milliseconds(10)))
    {
        // A packet is complete 20 ms after its first sample.
        for (; next < packets && (next + 1) * 20 + (next * 7 % 16) <= now; ++next)
        {
            const std::int16_t* const block = &audio[static_cast<std::size_t>(next) * 960];
            ASSERT_EQ(0, player.play(reinterpret_cast<const std::uint8_t*>(block), 1920));
        }
    }
    const auto first = std::find_if(played.begin(), played.end(), [](std::int16_t s) { return s != 0; });
    const auto lead = static_cast<std::size_t>(first - played.begin() - 1);
    ASSERT_EQ(lead + audio.size(), played.size());
    EXPECT_TRUE(std::equal(audio.begin(), audio.end(), first - 1)) << "without a hole";
    EXPECT_LE(lead, (20u + 120) * 48) << "20 ms are the packet's own length";
}
