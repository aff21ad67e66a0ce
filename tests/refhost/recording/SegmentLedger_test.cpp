#include "refhost/recording/SegmentLedger.h"

#include <fmt/core.h>
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "refhost/recording/SqliteQuery.h"
#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::SizeIs;

constexpr Duration second = std::chrono::seconds(1);

class SegmentLedgerTest : public testing::Test
{
protected:
    void open()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_.path(), error);
        ASSERT_TRUE(index_) << error;
    }

    RecordedSegment segment(int number, bool closed = true) const
    {
        RecordedSegment made;
        made.cameraId = 1;
        made.begin = wallTimeOfUnix(number);
        made.duration = second;
        made.bytes = 100;
        made.path = folder_ / fmt::format("1/0/{:06}.mkv", number);
        made.closed = closed;
        return made;
    }

    /// Another process that writes to the index for a long time.
    std::unique_ptr<SqliteDatabase> lock()
    {
        std::string error;
        auto other = SqliteDatabase::open(folder_ / "index.db", SqliteDatabase::Access::write, error);
        EXPECT_TRUE(other && other->execute("BEGIN IMMEDIATE")) << error;
        return other;
    }

    void waitUntilNothingIsKept() const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (ledger_.kept() > 0 && std::chrono::steady_clock::now() < end)
        {
            std::this_thread::yield();
        }
        EXPECT_EQ(ledger_.kept(), 0U);
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    std::atomic<int> forgotten_{0};
    SegmentLedger ledger_{folder_.path(),
                          {std::chrono::milliseconds(10), 50, std::chrono::milliseconds(10)},
                          [this] { ++forgotten_; }};
};

TEST_F(SegmentLedgerTest, SegmentIsEnteredAndItsNewestStateReplacesTheOneBefore)
{
    open();
    ledger_.setIndex(index_);
    ledger_.put(segment(1, false));
    ASSERT_TRUE(ledger_.flush());
    ASSERT_THAT(index_->unclosed(), SizeIs(1));
    EXPECT_TRUE(ledger_.isOpen(segment(1).path));
    RecordedSegment done = segment(1);
    done.duration = 7 * second;
    ledger_.put(done);
    ASSERT_TRUE(ledger_.flush());
    ASSERT_THAT(index_->all(), SizeIs(1));
    EXPECT_TRUE(index_->all()[0].closed);
    EXPECT_EQ(index_->all()[0].duration, 7 * second);
    EXPECT_FALSE(ledger_.isOpen(done.path));
}

TEST_F(SegmentLedgerTest, SegmentsAreEnteredWithoutFlush)
{
    open();
    ledger_.setIndex(index_);
    ledger_.put(segment(1));
    waitUntilNothingIsKept();
    EXPECT_THAT(index_->all(), SizeIs(1));
}

TEST_F(SegmentLedgerTest, WhatComesBeforeTheIndexIsEnteredWhenItIsThere)
{
    ledger_.put(segment(1));
    ledger_.put(segment(2, false));
    EXPECT_FALSE(ledger_.flush());
    open();
    ledger_.setIndex(index_);
    waitUntilNothingIsKept();
    EXPECT_THAT(index_->all(), SizeIs(2));
}

TEST_F(SegmentLedgerTest, LockedIndexLosesNothingAndBlocksNobody)
{
    open();
    ledger_.setIndex(index_);
    CapturedErrors log;
    auto other = lock();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i)
    {
        ledger_.put(segment(i, false));
        ledger_.put(segment(i));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(400));
    EXPECT_FALSE(ledger_.flush());
    EXPECT_EQ(ledger_.kept(), 20U);
    ASSERT_TRUE(other->execute("ROLLBACK"));
    waitUntilNothingIsKept();
    EXPECT_THAT(index_->all(), SizeIs(20));
    EXPECT_TRUE(index_->unclosed().empty());
    ledger_.close();
    EXPECT_THAT(log.linesWith("kept in memory"), SizeIs(1));
    EXPECT_EQ(forgotten_, 0);
}

TEST_F(SegmentLedgerTest, MemoryIsBoundedAndWhatIsForgottenIsReportedWhenTheIndexWorksAgain)
{
    ledger_.put(segment(0, false));
    for (int i = 1; i < 1000; ++i)
    {
        ledger_.put(segment(i));
    }
    EXPECT_EQ(ledger_.kept(), 50U);
    EXPECT_TRUE(ledger_.isOpen(segment(0).path)) << "what is being written is not forgotten";
    EXPECT_EQ(forgotten_, 0);
    open();
    ledger_.setIndex(index_);
    waitUntilNothingIsKept();
    ASSERT_TRUE(ledger_.flush());
    EXPECT_THAT(index_->all(), SizeIs(50));
    EXPECT_EQ(forgotten_, 1);
}

TEST_F(SegmentLedgerTest, ChangesOfAllSegmentsAreEnteredInOneTransactionAnInterval)
{
    open();
    SegmentLedger ledger(folder_.path(), {std::chrono::milliseconds(10), 4096, std::chrono::hours(1)},
                         nullptr);
    ledger.setIndex(index_);
    ASSERT_TRUE(ledger.flush());
    std::string error;
    const auto other = SqliteDatabase::open(folder_ / "index.db", SqliteDatabase::Access::read, error);
    ASSERT_TRUE(other) << error;
    // Grows by one with each transaction of another connection.
    const auto version = [&]
    {
        const auto statement = other->prepare("PRAGMA data_version");
        SqliteQuery query(*statement);
        EXPECT_TRUE(query.next());
        return query.number(0);
    };
    const std::int64_t before = version();
    for (int i = 0; i < 100; ++i)
    {
        ledger.put(segment(i, false));
        ledger.put(segment(i));
    }
    EXPECT_EQ(ledger.kept(), 100U) << "they wait for each other";
    EXPECT_EQ(version(), before);
    ASSERT_TRUE(ledger.flush());
    EXPECT_THAT(index_->all(), SizeIs(100));
    EXPECT_EQ(version(), before + 1);
}

TEST_F(SegmentLedgerTest, TransactionThatFailsLeavesTheIndexAsItWas)
{
    open();
    ASSERT_TRUE(index_->enter(segment(1)));
    RecordedSegment outside = segment(3);
    outside.path = "/elsewhere/1/0/3.mkv";
    EXPECT_FALSE(index_->apply({{segment(1), true}, {segment(2), false}, {outside, false}}));
    EXPECT_THAT(index_->lastError(), testing::HasSubstr("/elsewhere"));
    ASSERT_THAT(index_->all(), SizeIs(1));
    EXPECT_EQ(index_->all()[0].path, segment(1).path);
    EXPECT_TRUE(index_->apply({{segment(1), true}, {segment(2), false}}));
    ASSERT_THAT(index_->all(), SizeIs(1));
    EXPECT_EQ(index_->all()[0].path, segment(2).path);
}

TEST_F(SegmentLedgerTest, RemovedSegmentLeavesTheIndex)
{
    open();
    ASSERT_TRUE(index_->add(segment(1)));
    ledger_.setIndex(index_);
    ledger_.remove(segment(1).path);
    ledger_.put(segment(2));
    ledger_.remove(segment(2).path);
    ASSERT_TRUE(ledger_.flush());
    EXPECT_TRUE(index_->all().empty());
}

}  // namespace
}  // namespace refhost
