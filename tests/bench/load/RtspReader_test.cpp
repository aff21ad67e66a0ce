#include "bench/load/RtspReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace rtspload
{
namespace
{

/// Writes down what it is given, one text each.
class Notes : public RtspReaderSink
{
public:
    void onReply(const RtspReply& reply) override
    {
        lines.push_back(std::to_string(reply.status) + " " + std::string(reply.header("cseq")) + " " +
                        std::string(reply.body));
    }
    void onInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) override
    {
        lines.push_back("$" + std::to_string(channel) + " " + std::string(data, data + size));
    }

    std::vector<std::string> lines;
};

const std::string stream =
    "RTSP/1.0 200 OK\r\nCSeq:  7 \r\nContent-Length: 4\r\n\r\nv=0\n"
    "$\x01" +
    std::string("\0\x03", 2) + "abc" + "RTSP/1.0 404 Not Found\r\nCSeq: 8\r\n\r\n";

const std::vector<std::string> expected = {"200 7 v=0\n", "$1 abc", "404 8 "};

TEST(RtspReader, CutsAnswersAndPacketsApart)
{
    RtspReader reader;
    Notes notes;
    EXPECT_TRUE(reader.feed(stream.data(), stream.size(), notes));
    EXPECT_EQ(notes.lines, expected);
}

TEST(RtspReader, DoesNotMindWhereTheBytesAreCut)
{
    for (std::size_t cut = 0; cut <= stream.size(); ++cut)
    {
        RtspReader reader;
        Notes notes;
        EXPECT_TRUE(reader.feed(stream.data(), cut, notes));
        EXPECT_TRUE(reader.feed(stream.data() + cut, stream.size() - cut, notes));
        EXPECT_EQ(notes.lines, expected) << "cut at " << cut;
    }
}

TEST(RtspReader, RefusesWhatIsNoRtsp)
{
    RtspReader reader;
    Notes notes;
    const std::string text = "HTTP/1.1 200 OK\r\n\r\n";
    EXPECT_FALSE(reader.feed(text.data(), text.size(), notes));
}

}  // namespace
}  // namespace rtspload
