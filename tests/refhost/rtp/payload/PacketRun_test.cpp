#include "refhost/rtp/payload/PacketRun.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

using test::Bytes;

TEST(PacketRun, PacketsStandBehindRoomForFramingAndHeaders)
{
    PacketRun run;
    run.add(Bytes{1, 2}, Bytes{3});
    run.add(Bytes{4}, {});
    EXPECT_EQ(run.packets(), 2U);
    EXPECT_EQ(run.bytes(), 2U * 16 + 4);
    EXPECT_EQ(run.maxPayload(), 3U);
    const auto unit = run.finish(0x01020304, true);
    EXPECT_EQ(unit->bytes, (Bytes{0, 0, 0, 0, 0x80, 0,    0,    0, 1, 2, 3, 4, 0, 0, 0, 0, 1, 2,
                                  3, 0, 0, 0, 0,    0x80, 0x80, 0, 0, 1, 2, 3, 4, 0, 0, 0, 0, 4}));
    EXPECT_EQ(unit->payloadBytes, 4U);
    EXPECT_EQ(unit->rtpTimestamp, 0x01020304U);
    EXPECT_TRUE(run.empty());
}

TEST(PacketRun, AUnitDoesNotKeepMuchMoreMemoryThanItNeeds)
{
    PacketRun run;
    run.expect(1'000'000, 1);
    run.add(Bytes(1000), {});
    EXPECT_LT(run.finish(0, true)->bytes.capacity(), 10'000U);
}

TEST(PacketRun, PacketsThatAreCutLeaveNothing)
{
    for (std::size_t from = 0; from < 4; ++from)
    {
        PacketRun cut;
        PacketRun expected;
        const std::vector<Bytes> payloads{{1, 2}, {3, 4, 5, 6}, {7}};
        for (std::size_t i = 0; i < payloads.size(); ++i)
        {
            cut.add(payloads[i], {});
            if (i < from)
            {
                expected.add(payloads[i], {});
            }
        }
        cut.cut(from);
        EXPECT_EQ(cut.packets(), expected.packets());
        EXPECT_EQ(cut.maxPayload(), expected.maxPayload());
        cut.add(Bytes{8}, {});
        expected.add(Bytes{8}, {});
        const auto unit = cut.finish(5, true);
        EXPECT_EQ(unit->bytes, expected.finish(5, true)->bytes) << from;
        EXPECT_EQ(unit->payloadBytes, test::Bytes(unit->bytes).size() - unit->packets.size() * 16);
    }
}

TEST(PacketRun, NothingMakesNoUnit)
{
    PacketRun run;
    EXPECT_EQ(run.finish(1, true), nullptr);
    run.add(Bytes{1}, {});
    run.clear();
    EXPECT_EQ(run.finish(1, true), nullptr);
    EXPECT_EQ(run.maxPayload(), 0U);
}

}  // namespace
}  // namespace refhost
