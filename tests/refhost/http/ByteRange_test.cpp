#include "refhost/http/ByteRange.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

using Kind = ByteRange::Kind;

TEST(ByteRange, IsTheRequestedPartWithinTheDocument)
{
    const struct
    {
        const char* header;
        Kind kind;
        std::uint64_t first;
        std::uint64_t count;
    } cases[] = {
        {"bytes=0-0", Kind::part, 0, 1},
        {"bytes=10-19", Kind::part, 10, 10},
        {"bytes=10-", Kind::part, 10, 90},
        {"bytes=90-1000", Kind::part, 90, 10},
        {"bytes=-10", Kind::part, 90, 10},
        {"bytes=-1000", Kind::part, 0, 100},
        {" Bytes= 99- ", Kind::part, 99, 1},
        {"bytes=0-99999999999999999999999", Kind::part, 0, 100},
        {"bytes=100-", Kind::unsatisfiable, 0, 0},
        {"bytes=99999999999999999999999-", Kind::unsatisfiable, 0, 0},
        {"bytes=-0", Kind::unsatisfiable, 0, 0},
    };
    for (const auto& row : cases)
    {
        const ByteRange range = ByteRange::parse(row.header, 100);
        EXPECT_EQ(range.kind, row.kind) << row.header;
        EXPECT_EQ(range.first, row.first) << row.header;
        EXPECT_EQ(range.count, row.count) << row.header;
    }
}

TEST(ByteRange, AnythingElseIsTheWhole)
{
    for (const char* header :
         {"", "bytes", "bytes=", "bytes=-", "bytes=a-b", "bytes=5-3", "bytes=0-1,5-6", "bytes=--5",
          "lines=0-5", "bytes=1", "bytes= 1 - 2", "bytes=+1-2", "bytes=1-2x"})
    {
        const ByteRange range = ByteRange::parse(header, 100);
        EXPECT_EQ(range.kind, Kind::whole) << header;
        EXPECT_EQ(range.count, 100U) << header;
    }
}

}  // namespace
}  // namespace refhost
