#include "refhost/rtsp/message/PlayRequest.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace refhost
{
namespace
{

RtspStatus parse(std::initializer_list<RtspRequest::Header> headers, bool replay, PlayRequest& out)
{
    RtspRequest request;
    request.headers = headers;
    return PlayRequest::parse(request, replay, out);
}

TEST(PlayRequest, RequestWithoutHeadersLeavesEverythingOpen)
{
    PlayRequest order;
    EXPECT_EQ(parse({{"CSeq", "300"}}, false, order), rtspOk);
    EXPECT_FALSE(order.range);
    EXPECT_FALSE(order.scale);
    EXPECT_FALSE(order.speed);
    EXPECT_FALSE(order.replay);
}

TEST(PlayRequest, RangeScaleAndSpeedAreRead)
{
    PlayRequest order;
    EXPECT_EQ(parse({{"range", "npt=5-"}, {"Scale", "-2.5"}, {"Speed", "0.25"}}, false, order), rtspOk);
    EXPECT_EQ(order.range->begin, std::chrono::microseconds(5000000));
    EXPECT_EQ(order.scale, -2.5);
    EXPECT_EQ(order.speed, 0.25);
    EXPECT_EQ(parse({{"Scale", "32"}}, false, order), rtspOk);
    EXPECT_EQ(order.scale, 32);
    EXPECT_FALSE(order.range) << "an order is of one request alone";
}

TEST(PlayRequest, ABadRangeIsAnsweredAsSuch)
{
    PlayRequest order;
    EXPECT_EQ(parse({{"Range", "npt=5-3"}}, false, order), rtspInvalidRange);
    EXPECT_EQ(parse({{"Range", "bytes=5-"}}, false, order), rtspNotImplemented);
}

TEST(PlayRequest, RatesThatAreNoDecimalNumbersAreBadRequests)
{
    for (const char* const rate : {"", "-", "x", "1x", "1e3", "nan", "inf", "+1", "--1", "1.-5", " ", "0x10",
                                   ".5", "99999999999999999999"})
    {
        PlayRequest order;
        order.scale = 7;
        EXPECT_EQ(parse({{"Scale", rate}}, false, order), rtspBadRequest) << rate;
        EXPECT_EQ(parse({{"Speed", rate}}, false, order), rtspBadRequest) << rate;
        EXPECT_EQ(order.scale, 7) << rate;
    }
    PlayRequest order;
    EXPECT_EQ(parse({{"Speed", "-1"}}, false, order), rtspBadRequest) << "packets do not come back";
}

TEST(PlayRequest, ReplayHeadersCountWhereReplayIsRequired)
{
    PlayRequest order;
    EXPECT_EQ(parse({{"CSeq", "770"}, {"Rate-Control", "no"}, {"Frames", "intra"}, {"Immediate", "yes"}},
                    true, order),
              rtspOk);
    EXPECT_TRUE(order.replay);
    EXPECT_TRUE(order.noRateControl);
    EXPECT_TRUE(order.keyFramesOnly);
    EXPECT_EQ(order.sequence, 770 % 256);
    EXPECT_EQ(parse({{"CSeq", "1"}, {"Rate-Control", "yes"}, {"Frames", "all"}}, true, order), rtspOk);
    EXPECT_FALSE(order.noRateControl);
    EXPECT_FALSE(order.keyFramesOnly);
    EXPECT_EQ(order.keyFrameDistance, std::chrono::milliseconds(0));
    EXPECT_EQ(parse({{"Frames", "intra/4000"}}, true, order), rtspOk);
    EXPECT_TRUE(order.keyFramesOnly);
    EXPECT_EQ(order.keyFrameDistance, std::chrono::seconds(4));
    EXPECT_EQ(parse({{"Frames", "predicted"}}, true, order), rtspOk);
    EXPECT_FALSE(order.keyFramesOnly);
}

TEST(PlayRequest, WithoutReplayItsHeadersAreIgnored)
{
    PlayRequest order;
    EXPECT_EQ(parse({{"Rate-Control", "no"}, {"Frames", "intra"}}, false, order), rtspOk);
    EXPECT_FALSE(order.noRateControl);
    EXPECT_FALSE(order.keyFramesOnly);
    EXPECT_EQ(parse({{"Rate-Control", "?"}, {"Frames", "?"}}, false, order), rtspOk);
}

TEST(PlayRequest, MalformedReplayHeadersAreBadRequests)
{
    PlayRequest order;
    for (const char* const control : {"", "No", "maybe", "no, yes"})
    {
        EXPECT_EQ(parse({{"Rate-Control", control}}, true, order), rtspBadRequest) << control;
    }
    for (const char* const frames :
         {"", "some", "intra/", "intra/x", "intra/-1", "all/5", "/5", "predicted/1"})
    {
        EXPECT_EQ(parse({{"Frames", frames}}, true, order), rtspBadRequest) << frames;
    }
}

TEST(PlayRequest, RatesAreWrittenWithAtLeastOneDecimal)
{
    std::string out;
    for (const double rate : {1.0, 2.5, 0.25, -4.0, 32.0, 0.0, -0.0001, 1e300})
    {
        PlayRequest::appendRate(out, rate);
        out += ' ';
    }
    EXPECT_EQ(out, "1.0 2.5 0.25 -4.0 32.0 0.0 0.0 1000000000.0 ");
}

}  // namespace
}  // namespace refhost
