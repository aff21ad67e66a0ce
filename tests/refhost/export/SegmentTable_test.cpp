#include "refhost/export/SegmentTable.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

extern "C"
{
#include <libavutil/log.h>
}

#include "refhost/playback/SegmentFile.h"
#include "tests/refhost/export/ExportFixture.h"

namespace refhost
{
namespace test
{
namespace
{

class SegmentTableTest : public ExportTest
{
protected:
    SegmentTableTest()
    {
        // Thousands of lines about files that are meant to be damaged.
        av_log_set_level(AV_LOG_QUIET);
    }
    ~SegmentTableTest() override
    {
        av_log_set_level(AV_LOG_INFO);
    }

    struct Read
    {
        std::vector<SegmentTable::Sample> samples;
        int corrupt = 0;
    };

    static Read read(const std::string& path)
    {
        Read read;
        std::string error;
        const auto table = SegmentTable::open(path, error);
        SegmentTable::Sample sample;
        for (int i = 0; table && i < 100'000; ++i)
        {
            const SegmentTable::Result result = table->next(sample);
            if (result == SegmentTable::Result::end)
            {
                return read;
            }
            if (result == SegmentTable::Result::sample)
            {
                read.samples.push_back(sample);
            }
            read.corrupt += result == SegmentTable::Result::corrupt ? 1 : 0;
        }
        EXPECT_FALSE(table) << "it never ends";
        return read;
    }

    static std::string contentOf(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    void write(const std::string& content) const
    {
        std::ofstream(changed_, std::ios::binary | std::ios::trunc) << content;
    }

    const std::string changed_ = folder_ / "changed.mkv";
};

TEST_F(SegmentTableTest, FindsWhatTheDemuxerReads)
{
    for (const bool closed : {true, false})
    {
        const std::string path = record(closed ? 0 : 10, closed ? 3 : 13, closed);
        const std::string content = contentOf(path);
        const Read found = read(path);
        std::string error;
        const auto file = SegmentFile::open(path, error);
        ASSERT_TRUE(file) << error;
        CodedUnit unit;
        std::size_t i = 0;
        for (; file->read(unit) == SegmentFile::Result::unit; ++i)
        {
            ASSERT_LT(i, found.samples.size());
            const SegmentTable::Sample& sample = found.samples[i];
            EXPECT_EQ(sample.video, unit.video);
            EXPECT_EQ(sample.key, unit.key);
            EXPECT_EQ(sample.offset, unit.offset);
            EXPECT_EQ(content.substr(static_cast<std::size_t>(sample.position), sample.size),
                      std::string(unit.bytes.begin(), unit.bytes.end()));
            EXPECT_EQ(sample.head[1], unit.bytes[1]);
        }
        EXPECT_EQ(i, found.samples.size());
        EXPECT_EQ(found.corrupt, 0);
    }
}

TEST_F(SegmentTableTest, EveryPrefixIsReadWithinItself)
{
    const std::string path = record(0, 0.48);
    const std::string content = contentOf(path);
    std::size_t before = 0;
    for (std::size_t size = 0; size < content.size(); size += size < 1500 ? 1 : 37)
    {
        write(content.substr(0, size));
        const Read found = read(changed_);
        EXPECT_GE(found.samples.size(), before);
        before = found.samples.size();
        for (const SegmentTable::Sample& sample : found.samples)
        {
            ASSERT_LE(sample.position + sample.size, size);
        }
    }
    EXPECT_GT(before, 30U);
}

TEST_F(SegmentTableTest, ChangedBytesNeverLeadOutOfTheFile)
{
    const std::string path = record(0, 0.48);
    const std::string content = contentOf(path);
    for (std::size_t at = 0; at < content.size(); at += at < 1200 ? 1 : 29)
    {
        for (const char value : {'\x00', '\xff', '\x1f'})
        {
            std::string damaged = content;
            damaged[at] = value;
            write(damaged);
            for (const SegmentTable::Sample& sample : read(changed_).samples)
            {
                ASSERT_LE(sample.position + sample.size, content.size()) << at;
                ASSERT_GT(sample.size, 0U);
            }
        }
    }
}

TEST_F(SegmentTableTest, ReadsOnBehindCorruption)
{
    const std::string path = record(0, 4);
    const Read whole = read(path);
    std::string content = contentOf(path);
    // The header of a block in the middle, and what follows it.
    const auto at = static_cast<std::size_t>(whole.samples[whole.samples.size() / 2].position) - 8;
    content.replace(at, 40, std::string(40, '\0'));
    write(content);
    const Read found = read(changed_);
    EXPECT_EQ(found.corrupt, 1);
    EXPECT_GT(found.samples.size(), whole.samples.size() * 8 / 10);
    EXPECT_LT(found.samples.size(), whole.samples.size());
    EXPECT_EQ(found.samples.back().offset, whole.samples.back().offset);
}

TEST_F(SegmentTableTest, WhatIsNoRecordingIsRefusedWithAReason)
{
    std::string error;
    EXPECT_FALSE(SegmentTable::open(folder_ / "nothing.mkv", error));
    EXPECT_FALSE(error.empty());
    write("text");
    error.clear();
    EXPECT_FALSE(SegmentTable::open(changed_, error));
    EXPECT_FALSE(error.empty());
    error.clear();
    EXPECT_FALSE(SegmentTable::open(folder_ / "recordings", error));
    EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace test
}  // namespace refhost
