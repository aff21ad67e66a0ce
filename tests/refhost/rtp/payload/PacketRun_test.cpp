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
