#include "refhost/fragments/HlsStream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "refhost/media/Device.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/fragments/PacedCamera.h"

namespace refhost
{
namespace
{

using State = HlsFound::State;
using Kind = HlsQuery::Kind;

/// What came, and when it came.
class Answers
{
public:
    HlsStream::Respond take()
    {
        return [this](const HlsFound& found)
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            states_.push_back(found.state);
            last_ = found;
            changed_.notify_all();
        };
    }
    bool wait(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(20), [&] { return states_.size() >= count; });
    }
    std::vector<State> states() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return states_;
    }
    HlsFound last() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return last_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<State> states_;
    HlsFound last_;
};

class HlsStreamTest : public testing::Test
{
protected:
    HlsStreamTest()
    {
        Device::setStreams(cameras_);
    }
    ~HlsStreamTest() override
    {
        streams_.reset();
        Device::setStreams(nullptr);
    }

    static bool eventually(const std::function<bool()>& done)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < end)
        {
            if (done())
            {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }

    void ask(HlsQuery query = {})
    {
        streams_->find(1, 0)->ask(std::move(query), running_, answers_.take());
    }

    /// The camera goes on until there are so many answers.
    void answered(std::size_t count)
    {
        ASSERT_TRUE(cameras_->giveUntil([&] { return answers_.states().size() >= count; }));
    }

    static std::string after(const std::string& text, const std::string& sign)
    {
        const std::size_t from = text.find(sign) + sign.size();
        return text.substr(from, text.find_first_of("\"\n", from) - from);
    }

    const std::shared_ptr<std::atomic<bool>> running_ = std::make_shared<std::atomic<bool>>(false);
    test::ManualClock clock_;
    std::shared_ptr<test::PacedCamera> cameras_ = std::make_shared<test::PacedCamera>();
    std::shared_ptr<FragmentStreams> fragments_ = std::make_shared<FragmentStreams>(clock_);
    std::unique_ptr<HlsStreams> streams_ = std::make_unique<HlsStreams>(fragments_, clock_);
    Answers answers_;
};

TEST_F(HlsStreamTest, AQueryIsAnsweredOnceTheMediaHaveCome)
{
    ask();
    EXPECT_EQ(cameras_->source->viewers, 1);
    EXPECT_EQ(answers_.states().size(), 0U);
    answered(1);
    EXPECT_EQ(answers_.last().state, State::there);
    EXPECT_NE(answers_.last().text->find("#EXTINF:"), std::string::npos);
}

TEST_F(HlsStreamTest, AllWhoWaitForAPartGetTheSameBytes)
{
    ask();
    answered(1);
    const auto stream = streams_->find(1, 0);
    HlsQuery hinted;
    hinted.kind = Kind::file;
    HlsFound now;
    // What came last may still be on its way.
    ASSERT_TRUE(eventually(
        [&]
        {
            stream->ask({}, running_, [&](const HlsFound& found) { now = found; });
            hinted.name = after(*now.text, "PRELOAD-HINT:TYPE=PART,URI=\"media/");
            ask(hinted);
            return stream->waiting() == 1;
        }));
    ask(hinted);
    const std::size_t before = answers_.states().size();
    answered(before + 2);
    const HlsFound first = answers_.last();
    EXPECT_EQ(first.state, State::there);
    EXPECT_FALSE(first.bytes.empty());
    ask(hinted);
    EXPECT_EQ(answers_.last().bytes, first.bytes);
}

TEST_F(HlsStreamTest, WhoWaitsInVainIsAnswered)
{
    ask();
    clock_.advance(HlsStream::maxStart + Duration(1));
    ASSERT_TRUE(answers_.wait(1));
    EXPECT_EQ(answers_.last().state, State::awaited);
    EXPECT_EQ(streams_->find(1, 0)->waiting(), 0U);
}

TEST_F(HlsStreamTest, QueriesThatWaitAreBounded)
{
    for (std::size_t i = 0; i < HlsStream::maxWaiting; ++i)
    {
        ask();
    }
    EXPECT_EQ(answers_.states().size(), 0U);
    ask();
    EXPECT_EQ(answers_.states(), std::vector<State>{State::awaited});
    EXPECT_EQ(streams_->find(1, 0)->waiting(), HlsStream::maxWaiting);
    // Those whose clients are gone make room.
    running_->store(true);
    streams_->find(1, 0)->ask({}, std::make_shared<std::atomic<bool>>(false), answers_.take());
    EXPECT_EQ(answers_.states().size(), 1U);
    EXPECT_EQ(streams_->find(1, 0)->waiting(), 1U);
}

TEST_F(HlsStreamTest, ItEndsWhenNobodyAsksForAWhile)
{
    ask();
    answered(1);
    const std::string first = *answers_.last().text;
    clock_.advance(HlsStream::maxIdle + Duration(1));
    EXPECT_TRUE(eventually([this] { return cameras_->source->viewers == 0; }));
    ask();
    EXPECT_EQ(cameras_->source->viewers, 1);
    answered(2);
    const std::string second = *answers_.last().text;
    EXPECT_NE(after(second, "MAP:URI=\""), after(first, "MAP:URI=\""))
        << "what caches keep is of one start alone";
    EXPECT_GT(std::stoull(after(second, "MEDIA-SEQUENCE:")), std::stoull(after(first, "MEDIA-SEQUENCE:")));
}

TEST_F(HlsStreamTest, WhoWaitsForACameraThatIsGoneIsAnswered)
{
    ask();
    const auto old = cameras_->source;
    cameras_->replace(nullptr);
    EXPECT_EQ(streams_->find(1, 0), nullptr);
    ASSERT_TRUE(answers_.wait(1));
    EXPECT_EQ(answers_.last().state, State::absent);
    EXPECT_EQ(old->viewers, 0);
}

TEST_F(HlsStreamTest, ACameraThatWasReplacedStartsAgain)
{
    ask();
    const auto before = streams_->find(1, 0);
    cameras_->replace(std::make_shared<RecordedStreamFake>());
    EXPECT_NE(streams_->find(1, 0), before);
    ASSERT_TRUE(answers_.wait(1));
    EXPECT_EQ(answers_.last().state, State::absent);
    EXPECT_FALSE(before->touch());
}

TEST_F(HlsStreamTest, ManyAskWhileTheCameraDelivers)
{
    std::vector<std::thread> clients;
    std::atomic<int> done{0};
    for (int i = 0; i < 3; ++i)
    {
        clients.emplace_back(
            [&]
            {
                for (int j = 0; j < 50; ++j)
                {
                    Answers own;
                    streams_->find(1, 0)->ask({}, running_, own.take());
                    EXPECT_TRUE(own.wait(1));
                    EXPECT_EQ(own.last().state, State::there);
                    ++done;
                }
            });
    }
    EXPECT_TRUE(cameras_->giveUntil([&] { return done == 150; }));
    for (std::thread& client : clients)
    {
        client.join();
    }
}

TEST_F(HlsStreamTest, ItsEndLeavesNothingBehind)
{
    ask();
    streams_.reset();
    EXPECT_EQ(answers_.states(), std::vector<State>{State::absent});
    EXPECT_EQ(cameras_->source->viewers, 0);
    EXPECT_EQ(fragments_->find(1, 0)->fragments().subscribers(), 0U);
    cameras_->source->giveMedia(0, 1.04);
}

}  // namespace
}  // namespace refhost
