#include "refhost/rtsp/session/OfferedKeys.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

OfferedKeys::Offer offer(const std::string& presentation, bool inCrypto = false)
{
    OfferedKeys::Offer made;
    made.presentation = presentation;
    made.inCrypto = inCrypto;
    for (const char* track : {"trackID=0", "trackID=1"})
    {
        made.tracks.push_back({track, SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80)});
    }
    return made;
}

TEST(OfferedKeys, EachTrackHasItsKey)
{
    OfferedKeys keys;
    const OfferedKeys::Offer made = offer("a");
    keys.add(made);
    ASSERT_TRUE(keys.find("a", "trackID=1"));
    EXPECT_TRUE(*keys.find("a", "trackID=1") == made.tracks[1].key);
    EXPECT_TRUE(*keys.find("a", "") == made.tracks[0].key);
    EXPECT_FALSE(keys.find("a", "trackID=2"));
    EXPECT_FALSE(keys.find("b", "trackID=0"));
}

TEST(OfferedKeys, TheLastDescriptionCounts)
{
    OfferedKeys keys;
    keys.add(offer("a"));
    const OfferedKeys::Offer second = offer("a", true);
    keys.add(second);
    EXPECT_TRUE(*keys.find("a", "trackID=0") == second.tracks[0].key);
    EXPECT_TRUE(keys.inCrypto("a"));
    keys.remove("a");
    EXPECT_FALSE(keys.find("a", "trackID=0"));
    EXPECT_FALSE(keys.inCrypto("a"));
}

TEST(OfferedKeys, OneMoreThanTheLimitDropsTheOldest)
{
    OfferedKeys keys;
    for (std::size_t i = 0; i <= OfferedKeys::maxPresentations; ++i)
    {
        keys.add(offer(std::to_string(i)));
    }
    EXPECT_FALSE(keys.find("0", ""));
    EXPECT_TRUE(keys.find("1", ""));
    EXPECT_TRUE(keys.find(std::to_string(OfferedKeys::maxPresentations), ""));
}

}  // namespace
}  // namespace refhost
