#include "refhost/rtsp/message/RequestReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace refhost
{
namespace
{

using Item = RequestReader::Item;

/// The items of a reader, one line each.
class Reading
{
public:
    explicit Reading(const RequestReader::Limits& limits = RequestReader::Limits()) : reader_(limits) {}

    /// Feeds `bytes` from memory that is freed afterwards, like a connection's buffer.
    void feed(const std::string& bytes)
    {
        const std::vector<char> copy(bytes.begin(), bytes.end());
        reader_.feed(copy.data(), copy.size());
        for (Item item = reader_.next(request_); item != Item::none; item = reader_.next(request_))
        {
            items_.push_back(describe(item));
        }
    }

    const std::vector<std::string>& items() const
    {
        return items_;
    }

    std::size_t kept() const
    {
        return reader_.kept();
    }

private:
    std::string describe(Item item) const
    {
        if (item == Item::frame)
        {
            const RequestReader::Frame& frame = reader_.frame();
            return "frame " + std::to_string(frame.channel) + " " +
                   std::string(reinterpret_cast<const char*>(frame.data), frame.size);
        }
        std::string text;
        if (item == Item::malformed)
        {
            text = std::to_string(reader_.problem().status) + (reader_.problem().fatal ? " fatal" : "");
            text += " cseq=" + std::string(request_.value("CSeq"));
            return text;
        }
        text.append(request_.method).append(" ").append(request_.uri);
        for (const RtspRequest::Header& header : request_.headers)
        {
            text.append(" ").append(header.name).append("=").append(header.value);
        }
        return request_.body.empty() ? text : text + " body=" + std::string(request_.body);
    }

    RequestReader reader_;
    RtspRequest request_;
    std::vector<std::string> items_;
};

std::vector<std::string> readWhole(const std::string& bytes)
{
    Reading reading;
    reading.feed(bytes);
    return reading.items();
}

using Items = std::vector<std::string>;

std::string wholeConversation()
{
    return std::string("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n") + std::string("$\1\0\5hello", 9) +
           "\r\n"
           "SET_PARAMETER rtsp://h/a RTSP/1.0\nCSeq: 2\nX:  a b \nContent-Length: 4\n\nbody"
           "RTSP/1.0 200 OK\r\nCSeq: 7\r\n\r\n"
           "BROKEN\r\nCSeq: 3\r\n\r\n"
           "PLAY rtsp://h/a RTSP/2.0\r\nCSeq: 4\r\n\r\n"
           "PLAY rtsp://h/a RTSP/1.0\r\nCSeq: 5\r\nRange: npt=0-\r\n\r\n";
}

const Items conversationItems{
    "OPTIONS * CSeq=1", "frame 1 hello", "SET_PARAMETER rtsp://h/a CSeq=2 X=a b Content-Length=4 body=body",
    "400 cseq=3",       "505 cseq=4",    "PLAY rtsp://h/a CSeq=5 Range=npt=0-"};

TEST(RequestReader, ReadsRequestsFramesAndBodiesFromOneBuffer)
{
    EXPECT_EQ(readWhole(wholeConversation()), conversationItems);
}

TEST(RequestReader, DropsAFrameOfMoreThanTheLimitWithoutKeepingIt)
{
    RequestReader::Limits limits;
    limits.frameBytes = 5;
    const std::string bytes = std::string("$\1\0\5hello", 9) + std::string("$\1\0\6dollar", 10) +
                              std::string("$\2\1\0", 4) + std::string(256, '$') +
                              "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    const Items expected{"frame 1 hello", "OPTIONS * CSeq=1"};
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut)
    {
        Reading reading(limits);
        reading.feed(bytes.substr(0, cut));
        EXPECT_LT(reading.kept(), 35u) << "cut at " << cut;
        reading.feed(bytes.substr(cut));
        EXPECT_EQ(reading.items(), expected) << "cut at " << cut;
    }
}

TEST(RequestReader, KeepsBytesThatWereNotProcessed)
{
    RequestReader reader{RequestReader::Limits()};
    RtspRequest request;
    {
        const std::string bytes =
            "OPTIONS a RTSP/1.0\r\nCSeq: 1\r\n\r\nOPTIONS b RTSP/1.0\r\nCSeq: 2\r\n\r\nOPT";
        reader.feed(bytes.data(), bytes.size());
        ASSERT_EQ(reader.next(request), Item::request);
        reader.keepRest();
    }
    EXPECT_EQ(reader.kept(), 34u);
    ASSERT_EQ(reader.next(request), Item::request);
    EXPECT_EQ(request.uri, "b");
    EXPECT_EQ(reader.next(request), Item::none);
    EXPECT_EQ(reader.kept(), 3u);
}

TEST(RequestReader, ReadsTheSameWhereverTheBytesAreCutInTwo)
{
    const std::string bytes = wholeConversation();
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut)
    {
        Reading reading;
        reading.feed(bytes.substr(0, cut));
        reading.feed(bytes.substr(cut));
        EXPECT_EQ(reading.items(), conversationItems) << "cut at " << cut;
        EXPECT_EQ(reading.kept(), 0u);
    }
}

TEST(RequestReader, ReadsTheSameFromSingleBytes)
{
    Reading reading;
    for (const char c : wholeConversation())
    {
        reading.feed(std::string(1, c));
    }
    EXPECT_EQ(reading.items(), conversationItems);
    EXPECT_EQ(reading.kept(), 0u);
}

TEST(RequestReader, NoPrefixOfAConversationYieldsAnItemTooMany)
{
    const std::string bytes = wholeConversation();
    for (std::size_t size = 0; size < bytes.size(); ++size)
    {
        const Items items = readWhole(bytes.substr(0, size));
        ASSERT_LT(items.size(), conversationItems.size()) << "prefix of " << size;
        EXPECT_EQ(items, Items(conversationItems.begin(), conversationItems.begin() + items.size()));
    }
}

TEST(RequestReader, KeepsNothingBetweenWholeMessages)
{
    Reading reading;
    reading.feed("OPTIONS * RT");
    EXPECT_EQ(reading.kept(), 12u);
    reading.feed("SP/1.0\r\nCSeq: 1\r\n\r\n");
    EXPECT_EQ(reading.kept(), 0u);
    EXPECT_EQ(reading.items(), Items{"OPTIONS * CSeq=1"});
}

TEST(RequestReader, KeepsOnlyTheUnfinishedMessageBehindAFinishedOne)
{
    Reading reading;
    reading.feed("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\nPLA");
    EXPECT_EQ(reading.kept(), 3u);
    reading.feed("Y * RTSP/1.0\r\nCSeq: 2\r\n\r\nPAU");
    EXPECT_EQ(reading.kept(), 3u);
}

struct MessageCase
{
    const char* name;
    std::string bytes;
    Items items;
};

void PrintTo(const MessageCase& message, std::ostream* out)
{
    *out << message.name;
}

class RequestReaderMessages : public testing::TestWithParam<MessageCase>
{
};

TEST_P(RequestReaderMessages, AreReadAsTheyShould)
{
    EXPECT_EQ(readWhole(GetParam().bytes), GetParam().items);
}

TEST_P(RequestReaderMessages, AreReadTheSameFromSingleBytes)
{
    Reading reading;
    for (const char c : GetParam().bytes)
    {
        reading.feed(std::string(1, c));
    }
    EXPECT_EQ(reading.items(), GetParam().items);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RequestReaderMessages,
    testing::Values(
        MessageCase{"LineFeedsAlone", "PLAY u RTSP/1.0\nCSeq: 1\n\n", {"PLAY u CSeq=1"}},
        MessageCase{"FoldedHeader",
                    "PLAY u RTSP/1.0\r\nX: a\r\n  b\r\n\tc\r\nCSeq: 1\r\n\r\n",
                    {"PLAY u X=a\r\n  b\r\n\tc CSeq=1"}},
        MessageCase{"FoldedHeaderThatBeginsEmpty", "PLAY u RTSP/1.0\r\nX:\r\n b\r\n\r\n", {"PLAY u X=b"}},
        MessageCase{"FoldBehindTheRequestLine", "PLAY u RTSP/1.0\r\n b\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"EmptyValue", "PLAY u RTSP/1.0\r\nX:\r\n\r\n", {"PLAY u X="}},
        MessageCase{"BlankBeforeTheColon", "PLAY u RTSP/1.0\r\nX : a\r\n\r\n", {"PLAY u X=a"}},
        MessageCase{"NoHeaders", "PLAY u RTSP/1.0\r\n\r\n", {"PLAY u"}},
        MessageCase{"HeaderWithoutColon", "PLAY u RTSP/1.0\r\nX\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"HeaderWithoutName", "PLAY u RTSP/1.0\r\n: x\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"NoVersion", "PLAY u\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"NoUrl", "PLAY  RTSP/1.0\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"BlankInTheUrl", "PLAY a b RTSP/1.0\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{"AnotherProtocol", "GET / HTTP/1.1\r\nHost: x\r\n\r\n", {"400 cseq="}},
        MessageCase{"VersionOfTheFuture", "PLAY u RTSP/2.0\r\nCSeq: 1\r\n\r\n", {"505 cseq=1"}},
        MessageCase{"VersionWithoutNumber", "PLAY u RTSP/x\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{
            "ControlCharacterInAValue", "PLAY u RTSP/1.0\r\nX: a\1b\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{
            "CarriageReturnInsideALine", "PLAY u RTSP/1.0\r\nX: a\rb\r\nCSeq: 1\r\n\r\n", {"400 cseq=1"}},
        MessageCase{
            "GoesOnBehindAMalformedMessage", "X\r\n\r\nPLAY u RTSP/1.0\r\n\r\n", {"400 cseq=", "PLAY u"}},
        MessageCase{"SkipsTheBodyOfAMalformedMessage",
                    "X\r\nContent-Length: 3\r\n\r\nabcPLAY u RTSP/1.0\r\n\r\n",
                    {"400 cseq=", "PLAY u"}},
        MessageCase{
            "SkipsResponses", "RTSP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nxRTSP/1.0 404 Gone\r\n\r\n", {}},
        MessageCase{"EmptyLinesBetween", "\r\n\n\r\nPLAY u RTSP/1.0\r\n\r\n\r\n\r\n", {"PLAY u"}},
        MessageCase{"EmptyFrame", std::string("$\7\0\0PLAY u RTSP/1.0\r\n\r\n", 23), {"frame 7 ", "PLAY u"}},
        MessageCase{"ChannelOf255", std::string("$\xff\0\1x", 5), {"frame 255 x"}},
        MessageCase{"SameLengthTwice",
                    "PLAY u RTSP/1.0\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\nx",
                    {"PLAY u Content-Length=1 Content-Length=1 body=x"}},
        MessageCase{"DifferentLengths",
                    "PLAY u RTSP/1.0\r\nCSeq: 1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nPLAY u "
                    "RTSP/1.0\r\n\r\n",
                    {"400 fatal cseq=1"}},
        MessageCase{"NegativeLength",
                    "PLAY u RTSP/1.0\r\nCSeq: 1\r\nContent-Length: -1\r\n\r\n",
                    {"400 fatal cseq=1"}},
        MessageCase{"LengthThatIsNoNumber",
                    "PLAY u RTSP/1.0\r\nCSeq: 1\r\nContent-Length: 1x\r\n\r\n",
                    {"400 fatal cseq=1"}},
        MessageCase{"LengthBeyondEveryNumber",
                    "PLAY u RTSP/1.0\r\nCSeq: 1\r\nContent-Length: 99999999999999999999999\r\n\r\n",
                    {"400 fatal cseq=1"}},
        MessageCase{"BodyTooLarge",
                    "PLAY u RTSP/1.0\r\nCSeq: 1\r\nContent-Length: 65537\r\n\r\n",
                    {"413 fatal cseq=1"}},
        MessageCase{"FirstByteOfNoProtocol", "\x16\x03\x01 hello", {"400 fatal cseq="}},
        MessageCase{
            "NothingIsReadBehindAFatalProblem", "\x16\r\n\r\nPLAY u RTSP/1.0\r\n\r\n", {"400 fatal cseq="}}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(RequestReader, RefusesARequestLineBeyondTheLimit)
{
    Reading reading({64, 100, 10});
    reading.feed("PLAY " + std::string(96, 'u'));
    EXPECT_EQ(reading.items(), Items{"414 fatal cseq="});
}

TEST(RequestReader, RefusesHeadersBeyondTheLimitOfBytes)
{
    Reading reading({64, 100, 10});
    reading.feed("PLAY u RTSP/1.0\r\nX: " + std::string(90, 'x'));
    EXPECT_EQ(reading.items(), Items{"400 fatal cseq="});
}

TEST(RequestReader, TakesHeadersOfExactlyTheLimit)
{
    const std::string head = "PLAY u RTSP/1.0\r\nX: y\r\n\r\n";
    Reading exact({1, head.size(), 0});
    exact.feed(head);
    EXPECT_EQ(exact.items(), Items{"PLAY u X=y"});

    Reading tooSmall({1, head.size() - 1, 0});
    tooSmall.feed(head);
    EXPECT_EQ(tooSmall.items(), Items{"400 fatal cseq="});
}

TEST(RequestReader, RefusesMoreHeaderLinesThanTheLimit)
{
    Reading reading({2, 1000, 10});
    reading.feed("PLAY u RTSP/1.0\r\nA: 1\r\nB: 2\r\n\r\n");
    reading.feed("PLAY u RTSP/1.0\r\nA: 1\r\nB: 2\r\nC: 3\r\n\r\n");
    EXPECT_EQ(reading.items(), (Items{"PLAY u A=1 B=2", "400 fatal cseq="}));
}

TEST(RequestReader, TakesABodyOfExactlyTheLimit)
{
    Reading reading({2, 1000, 10});
    reading.feed("PLAY u RTSP/1.0\r\nContent-Length: 10\r\n\r\n0123456789");
    EXPECT_EQ(reading.items(), Items{"PLAY u Content-Length=10 body=0123456789"});
}

TEST(RequestReader, NeverKeepsMoreThanTheLimits)
{
    Reading reading({8, 200, 100});
    for (int i = 0; i < 10000; ++i)
    {
        reading.feed("A");
        ASSERT_LE(reading.kept(), 300u);
    }
    EXPECT_EQ(reading.items(), Items{"414 fatal cseq="});
}

TEST(RequestReader, FindsAnItemAgainThatWasPutBack)
{
    RequestReader reader{RequestReader::Limits()};
    RtspRequest request;
    std::string bytes = "PLAY u RTSP/1.0\r\nCSeq: 1\r\n\r\nPAUSE u RTSP/1.0\r\nCSeq: 2\r\n\r\nTEAR";
    reader.feed(bytes.data(), bytes.size());
    ASSERT_EQ(reader.next(request), Item::request);
    reader.putBack();
    bytes.assign(bytes.size(), '!');  // the fed bytes are overwritten

    ASSERT_EQ(reader.next(request), Item::request);
    EXPECT_EQ(request.method, "PLAY");
    ASSERT_EQ(reader.next(request), Item::request);
    EXPECT_EQ(request.method, "PAUSE");
    reader.putBack();
    ASSERT_EQ(reader.next(request), Item::request);
    EXPECT_EQ(request.value("cseq"), "2");
    EXPECT_EQ(reader.next(request), Item::none);
    EXPECT_EQ(reader.kept(), 4u);
}

std::string findHttp(const std::string& text, std::size_t chunk)
{
    RequestReader::Limits limits;
    limits.http = true;
    RequestReader reader(limits);
    RtspRequest request;
    std::string found;
    for (std::size_t at = 0; at < text.size(); at += chunk)
    {
        const std::string part = text.substr(at, chunk);
        reader.feed(part.data(), part.size());
        for (auto item = reader.next(request); item != RequestReader::Item::none; item = reader.next(request))
        {
            switch (item)
            {
                case RequestReader::Item::http:
                    return found + "http " + std::string(reader.httpHead());
                case RequestReader::Item::request:
                    found += "request ";
                    break;
                default:
                    found += "other ";
                    break;
            }
        }
    }
    return found;
}

TEST(RequestReaderHttp, HeadOfAFirstRequestIsFoundHoweverItIsCut)
{
    const std::string head = "POST /x HTTP/1.0\r\nContent-Length: 99999999\r\nA\x01\r\n\r\n";
    for (std::size_t chunk = 1; chunk <= head.size(); ++chunk)
    {
        EXPECT_EQ(findHttp(head, chunk), "http " + head) << chunk;
    }
    EXPECT_EQ(findHttp("\r\nGET / HTTP/1.1\n\n", 100), "http GET / HTTP/1.1\n\n");
    EXPECT_EQ(findHttp("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 100), "http PRI * HTTP/2.0\r\n\r\n");
}

TEST(RequestReaderHttp, WhatIsReceivedBehindTheHeadIsKept)
{
    RequestReader::Limits limits;
    limits.http = true;
    RequestReader reader(limits);
    RtspRequest request;
    const std::string text = "POST / HTTP/1.0\r\n\r\nT1BUS";
    reader.feed(text.data(), text.size());
    ASSERT_EQ(reader.next(request), RequestReader::Item::http);
    EXPECT_EQ(reader.httpRest(), "T1BUS");
    EXPECT_EQ(reader.next(request), RequestReader::Item::none);
}

TEST(RequestReaderHttp, LaterRequestsAndRtspAreNone)
{
    const std::string options = "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    const std::string get = "GET / HTTP/1.1\r\n\r\n";
    EXPECT_EQ(findHttp(options + get, 1000), "request other ");
    EXPECT_EQ(findHttp(std::string("$\0\0\0", 4) + get, 1000), "other other ");
    EXPECT_EQ(findHttp("GET / RTSP/1.0\r\n\r\n", 1000), "request ");
    EXPECT_EQ(findHttp("GET /HTTP/1.1 RTSP/1.0\r\n\r\n", 1000), "request ");
    EXPECT_EQ(findHttp("GET_PARAMETER * RTSP/1.0\r\nX: HTTP/1.1\r\n\r\n", 1000), "request ");
}

}  // namespace
}  // namespace refhost
