#include "refhost/rtp/payload/AudioDepacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::described;
using test::payloadOf;
using test::Reception;

TEST(AudioDepacketizer, EachPacketIsAUnit)
{
    Reception reception(described("PCMA", 8000));
    EXPECT_EQ(reception.push({1, 2, 3}, 100, true), "");
    EXPECT_EQ(reception.push({4, 5}, 103, false, 7), "");
    ASSERT_EQ(reception.units.size(), 2U);
    const DepacketizedUnit& first = reception.units[0];
    EXPECT_EQ(first.bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(first.timestamp, 100U);
    EXPECT_EQ(first.duration, 3U);
    EXPECT_TRUE(first.keyFrame);
    EXPECT_EQ(first.maxPayload, 3U);
    EXPECT_TRUE(first.packets->keyFrame);
    EXPECT_EQ(payloadOf(*first.packets, 0), (Bytes{1, 2, 3}));
    EXPECT_FALSE(reception.units[1].damaged);
    EXPECT_EQ(first.format, reception.units[1].format);
    EXPECT_EQ(first.format->sampleRate, 8000);
    EXPECT_EQ(first.format->channels, 1);
    EXPECT_EQ(first.format->codec, Codec::pcma);
}

TEST(AudioDepacketizer, PcmOfAnotherRateIsRefused)
{
    const Reception rate(described("PCMU", 16000));
    EXPECT_EQ(rate.error, "PCMU of 16000 Hz and 1 channels cannot be read, only 8000 Hz and one channel");
    const Reception channels(described("PCMU", 8000, {}, 2));
    EXPECT_EQ(channels.depacketizer, nullptr);
    const Reception opus(described("opus", 44100, {}, 2));
    EXPECT_EQ(opus.error, "opus of 44100 Hz and 2 channels cannot be read, only 48000 Hz");
}

TEST(AudioDepacketizer, OpusPacketHasItsLength)
{
    Reception reception(described("opus", 48000, {}, 2));
    EXPECT_EQ(reception.push({0xf8, 1, 2}, 0, true), "");  // CELT, 20 ms, one frame
    EXPECT_EQ(reception.push({0x03}, 960, true), "not a whole number of samples");
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].duration, 960U);
    EXPECT_EQ(reception.units[0].format->channels, 1);
    EXPECT_EQ(reception.units[0].format->codecData.size(), 19U);
}

TEST(AudioDepacketizer, OpusIsStereoWhereDescriptionOrPacketsSaySo)
{
    const Reception stereo(described("opus", 48000, {{"sprop-stereo", "1"}}, 2));
    EXPECT_EQ(stereo.depacketizer->format()->channels, 2);
    Reception found(described("opus", 48000, {}, 2));
    found.push({0xf8, 1}, 0, true);
    found.push({0xfc, 1}, 960, true);
    found.push({0xf8, 1}, 1920, true);
    ASSERT_EQ(found.units.size(), 3U);
    EXPECT_EQ(found.units[0].format->channels, 1);
    EXPECT_EQ(found.units[1].format->channels, 2);
    EXPECT_EQ(found.units[1].format, found.units[2].format);
}

TEST(AudioDepacketizer, WhatNobodyTakesIsNotMade)
{
    Reception reception(described("PCMU", 8000));
    reception.depacketizer->setOutputs({false, true});
    reception.push({1}, 0, true);
    reception.depacketizer->setOutputs({true, false});
    reception.push({1}, 1, true);
    EXPECT_TRUE(reception.units[0].bytes.empty());
    EXPECT_NE(reception.units[0].packets, nullptr);
    EXPECT_EQ(reception.units[1].bytes, Bytes{1});
    EXPECT_EQ(reception.units[1].packets, nullptr);
}

}  // namespace
}  // namespace refhost
