// What is heard of talk-back over a network that loses and exchanges packets: from packets to the output, by
// a clock that the test moves, so that no busy machine has a part in it.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "refhost/audio/OutputPlayer.h"
#include "refhost/audio/TalkSession.h"
#include "tests/refhost/audio/HeardOutput.h"
#include "tests/refhost/audio/SoundSamples.h"
#include "tests/refhost/audio/TalkFakes.h"
#include "tests/refhost/rtp/RtpFakes.h"

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

/// What was heard of a talk over a bad network.
struct Heard
{
    int arrived = 0;
    int whole = 0;            ///< packets that arrived and were heard to their end
    std::size_t silence = 0;  ///< frames, from the first packet's to the last
};

class Talker
{
public:
    explicit Talker(unsigned seed) : random_(seed)
    {
        SharedOutput output(settings());
        auto* const player = new OutputPlayer(std::make_unique<HeardOutput>(clock_, samples_), format, 60);
        const SafePointer<IMediaPlayer> handle(player);
        const auto wire = std::make_shared<Wire>();
        TalkSession session(handle, output, clock_, TalkDecoder::make);
        EXPECT_EQ(0, player->open());
        EXPECT_EQ(0, session.init(*backChannelOf("pcmu")));
        EXPECT_EQ(0, session.connect(SafePointer<IConnection>(new FakeTransport(wire))));
        EXPECT_EQ(0, session.play());
        schedule();
        bool fault = false;
        for (int now = 0; now < packets * 20 + 200; ++now, clock_.advanceMs(1))
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

    Heard judge() const
    {
        constexpr std::ptrdiff_t nearby = 20 * packetFrames;
        constexpr std::ptrdiff_t enough = packetFrames * 3 / 4;
        Heard out;
        auto at = std::find_if(samples_.begin(), samples_.end(), [](std::int16_t s) { return s != 0; });
        const auto first = at;
        auto last = at;
        for (const int packet : arrived_)
        {
            ++out.arrived;
            // Behind a gap the first milliseconds are blended.
            const auto end = samples_.end() - at < nearby ? samples_.end() : at + nearby;
            const auto begin = std::search_n(at, end, enough, valueOf(packet));
            if (begin != end)
            {
                ++out.whole;
                at = begin + enough;
                last = at;
            }
        }
        out.silence = static_cast<std::size_t>(std::count(first, last, 0));
        return out;
    }

private:
    static TalkSettings settings()
    {
        TalkSettings out;
        out.format = format;
        return out;
    }

    static std::int16_t valueOf(int packet)
    {
        const std::uint8_t code = codeOf(packet);
        Samples samples;
        TalkDecoder::make(*backChannelOf("pcmu"), format)->decode(&code, 1, samples);
        return samples.at(0);
    }

    /// One in twenty comes behind its successor, and one in twenty never.
    void schedule()
    {
        std::uniform_int_distribution<int> chance(1, 100);
        std::uniform_int_distribution<int> jitter(0, 3);
        for (int packet = 0; packet < packets; ++packet)
        {
            const int lot = packet == 0 ? 100 : chance(random_);
            if (lot > 5)
            {
                const int late = lot <= 10 ? 24 : 0;
                arrivals_.emplace(20 * packet + late + jitter(random_), packet);
                arrived_.push_back(packet);
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
    std::vector<int> arrived_;
};

TEST(TalkQuality, OfWhatArrivesOverABadNetworkNearlyEverythingIsHeardAndSilenceIsShort)
{
    for (unsigned seed = 1; seed <= 20; ++seed)
    {
        const Heard heard = Talker(seed).judge();
        EXPECT_LE(heard.arrived - 2, heard.whole) << "seed " << seed;
        EXPECT_GE(60u * format.sampleRate / 1000, heard.silence) << "in 20 s, seed " << seed;
    }
}

}  // namespace
}  // namespace test
}  // namespace refhost
