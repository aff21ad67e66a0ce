#include "refhost/playback/PlaybackCatalog.h"

#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/playback/RecordedMedia.h"

namespace refhost
{
namespace test
{
namespace
{

/// Intervals are whole seconds; a recording that starts at a fraction of one has them begin inside a GOP.
class PlaybackCatalogTest : public RecordedMediaTest
{
protected:
    int describe(int begin, int end)
    {
        RecordInfo record;
        record.setCameraId(1);
        record.setRecordBeginTime(static_cast<unsigned long>(unixSeconds(at(begin))));
        record.setRecordEndTime(static_cast<unsigned long>(unixSeconds(at(end))));
        info = MediaInfo();
        EXPECT_EQ(catalog->describe(record, info), hostStreamNotReady);
        pool.runDue(10);
        return catalog->describe(record, info);
    }

    WorkPool pool{{0, Duration::zero(), "playback", &clock}};
    std::shared_ptr<PlaybackCatalog> catalog =
        std::make_shared<PlaybackCatalog>([this] { return recordings; }, pool, clock);
    MediaInfo info;
};

TEST_F(PlaybackCatalogTest, PresentationStartsWithTheKeyFrameAtOrBeforeItsInterval)
{
    addSegment(10.25, 4);
    ASSERT_EQ(describe(12, 14), 0);
    EXPECT_EQ(WallTime(Duration(info.recordBeginTime)), at(11.25));
    EXPECT_DOUBLE_EQ(info.recordSeconds, 2.75);
    EXPECT_EQ(info.getAllSubMediaInfo().size(), 2U);
}

TEST_F(PlaybackCatalogTest, IntervalThatStartsAtAKeyFrameStartsThere)
{
    addSegment(10, 4);
    ASSERT_EQ(describe(12, 14), 0);
    EXPECT_EQ(WallTime(Duration(info.recordBeginTime)), at(12));
    EXPECT_DOUBLE_EQ(info.recordSeconds, 2);
}

TEST_F(PlaybackCatalogTest, PresentationStartsWhereTheRecordingDoes)
{
    addSegment(10.25, 2);
    addSegment(20.75, 2);
    ASSERT_EQ(describe(0, 12), 0);
    EXPECT_EQ(WallTime(Duration(info.recordBeginTime)), at(10.25));
    EXPECT_DOUBLE_EQ(info.recordSeconds, 1.75);
    ASSERT_EQ(describe(15, 30), 0);
    EXPECT_EQ(WallTime(Duration(info.recordBeginTime)), at(20.75)) << "in a gap";
    EXPECT_DOUBLE_EQ(info.recordSeconds, 9.25);
}

TEST_F(PlaybackCatalogTest, AudioAloneStartsWithItsFirstBlock)
{
    addFile(makeFile(2, "", "alawenc"), 10.5, 2);
    ASSERT_EQ(describe(11, 12), 0);
    EXPECT_LE(WallTime(Duration(info.recordBeginTime)), at(11));
    EXPECT_GT(WallTime(Duration(info.recordBeginTime)), at(10.9));
}

TEST_F(PlaybackCatalogTest, AnIntervalWithoutRecordedMediaIsUnknown)
{
    addSegment(10.25, 2);
    EXPECT_EQ(describe(13, 20), hostRecordingUnknown);
}

}  // namespace
}  // namespace test
}  // namespace refhost
