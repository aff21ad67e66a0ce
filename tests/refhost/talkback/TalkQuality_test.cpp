// Talk-back over a network that loses and reorders packets, from packets to the output, by a manual clock, so
// that a busy machine does not matter.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "refhost/talkback/TalkSession.h"
#include "refhost/talkback/outputs/OutputPlayer.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/AudioSamples.h"
#include "tests/refhost/talkback/CapturedOutput.h"
#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr PcmFormat format{8000, 1};
constexpr std::size_t packetFrames = 160;
constexpr int packets = 1000;
constexpr int turnMs = 10;

/// Every packet holds one value, and the next forty hold others.
std::uint8_t codeOf(int packet)
{
    return static_cast<std::uint8_t>(0x80 + packet % 40);
}

struct Network
{
    int lost;      ///< of a hundred packets
    int late;      ///< of a hundred packets arrive after their successors
    int jitterMs;  ///< at most, of all others
};

constexpr Network good{0, 0, 15};
constexpr Network bad{5, 5, 3};

/// What was played of a talk.
struct Result
{
    int arrived = 0;
    int whole = 0;            ///< packets that arrived and were played to their end
    std::size_t silence = 0;  ///< frames, from the first packet's to the last
    int delayMs = 0;          ///< longest, from a packet's arrival to the start of its audio
};

class TalkSender
{
public:
    TalkSender(unsigned seed, const Network& network, TalkPolicy policy) : random_(seed)
    {
        TalkSettings settings;
        settings.format = format;
        settings.policy = policy;
        SharedOutput output(settings);
        const std::chrono::milliseconds lead(policy == TalkPolicy::mix ? 30 : 60);  // as in the server
        auto* const player =
            new OutputPlayer(std::make_unique<CapturedOutput>(clock_, samples_), format, lead);
        const SafePointer<IMediaPlayer> handle(player);
        const auto wire = std::make_shared<Wire>();
        TalkSession session(handle, output, clock_, TalkDecoder::make);
        EXPECT_EQ(0, player->open());
        EXPECT_EQ(0, session.init(*backChannelOf(Codec::pcmu)));
        EXPECT_EQ(0, session.connect(SafePointer<IConnection>(new FakeTransport(wire))));
        EXPECT_EQ(0, session.play());
        schedule(network);
        bool fault = false;
        for (int now = 0; now < packets * 20 + 200; ++now, clock_.advance(std::chrono::milliseconds(1)))
        {
            const auto due = arrivals_.equal_range(now);
            for (auto arrival = due.first; arrival != due.second; ++arrival)
            {
                bring(*wire, arrival->second);
            }
            if (now % turnMs == 0)
            {
                session.receive(fault);
            }
        }
        EXPECT_FALSE(fault);
    }

    Result judge() const
    {
        constexpr std::ptrdiff_t nearby = 20 * packetFrames;
        constexpr std::ptrdiff_t enough = packetFrames * 3 / 4;
        Result out;
        auto at = std::find_if(samples_.begin(), samples_.end(), [](std::int16_t s) { return s != 0; });
        const auto first = at;
        auto last = at;
        for (const auto& [packet, atMs] : arrivedMs_)
        {
            ++out.arrived;
            // Behind a gap the first milliseconds are blended.
            const auto end = samples_.end() - at < nearby ? samples_.end() : at + nearby;
            const auto begin = std::search_n(at, end, enough, valueOf(packet));
            if (begin != end)
            {
                ++out.whole;
                const auto startsMs = static_cast<int>((begin - samples_.begin()) * 1000 / format.sampleRate);
                out.delayMs = std::max(out.delayMs, startsMs - atMs);
                at = begin + enough;
                last = at;
            }
        }
        out.silence = static_cast<std::size_t>(std::count(first, last, 0));
        return out;
    }

private:
    static std::int16_t valueOf(int packet)
    {
        const std::uint8_t code = codeOf(packet);
        Samples samples;
        TalkDecoder::make(*backChannelOf(Codec::pcmu), format)->decode(&code, 1, samples);
        return samples.at(0);
    }

    void schedule(const Network& network)
    {
        std::uniform_int_distribution<int> chance(1, 100);
        std::uniform_int_distribution<int> jitter(0, network.jitterMs);
        for (int packet = 0; packet < packets; ++packet)
        {
            const int lot = packet == 0 ? 100 : chance(random_);
            if (lot > network.lost)
            {
                const int late = lot <= network.lost + network.late ? 24 : 0;
                const int atMs = 20 * packet + late + jitter(random_);
                arrivals_.emplace(atMs, packet);
                arrivedMs_.emplace(packet, atMs);
            }
        }
    }

    static void bring(Wire& wire, int number)
    {
        RtpPacket packet;
        packet.sequence = static_cast<std::uint16_t>(number);
        packet.timestamp = static_cast<std::uint32_t>(number) * packetFrames;
        packet.payload.assign(packetFrames, codeOf(number));
        const Bytes bytes = packet.bytes();
        wire.listener.lock()->onRtp(bytes.data(), bytes.size());
    }

    std::mt19937 random_;
    ManualClock clock_;
    Samples samples_;
    std::multimap<int, int> arrivals_;
    std::map<int, int> arrivedMs_;  // of each packet that was not lost
};

class TalkQuality : public testing::TestWithParam<TalkPolicy>
{
};

TEST_P(TalkQuality, JitterAloneLosesNothingAndDelaysBelow120Milliseconds)
{
    for (unsigned seed = 1; seed <= 5; ++seed)
    {
        const Result result = TalkSender(seed, good, GetParam()).judge();
        EXPECT_EQ(packets, result.whole) << "seed " << seed;
        EXPECT_EQ(0u, result.silence) << "seed " << seed;
        EXPECT_GT(120, result.delayMs) << "seed " << seed;
    }
}

TEST_P(TalkQuality, BadNetworkLeavesShortSilencesAndPlaysNearlyAllArrivedAudioSoon)
{
    for (unsigned seed = 1; seed <= 10; ++seed)
    {
        const Result result = TalkSender(seed, bad, GetParam()).judge();
        EXPECT_LE(result.arrived - 2, result.whole) << "seed " << seed;
        EXPECT_GE(60u * format.sampleRate / 1000, result.silence) << "in 20 s, seed " << seed;
        EXPECT_GE(130, result.delayMs) << "seed " << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(OneTalkSender, TalkQuality, testing::Values(TalkPolicy::first, TalkPolicy::mix),
                         [](const testing::TestParamInfo<TalkPolicy>& tested)
                         { return tested.param == TalkPolicy::mix ? "Mixed" : "First"; });

}  // namespace
}  // namespace test
}  // namespace refhost
