// Clients that do not read their responses while one of their requests is deferred.
#include <gtest/gtest.h>

#include <string>

#include "refhost/rtsp/connection/RtspConnection.h"
#include "tests/refhost/rtsp/connection/StreamFixture.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using test::HandFedStream;
using test::TestClient;
using Description = StreamSource::Description;

class CongestedConnectionTest : public test::StreamFixture
{
protected:
    static constexpr int answered = 140;

    /// The client reads nothing and requests more than may wait; its last request is deferred.
    void congest()
    {
        stream().description = Description::starting;
        connectMemory(100000);
        carrier_.lock()->stall(true);
        // In two steps: a request behind too many waiting responses is not handled.
        client_->send(options(1, answered / 2));
        ASSERT_TRUE(eventually([this] { return carrier_.lock()->allReceived(); }));
        runOn(loop_->events(), [] {});
        client_->send(options(answered / 2 + 1, answered) +
                      TestClient::text("DESCRIBE", url("orv/live/1/1"), answered + 1, "", ""));
        ASSERT_TRUE(eventually([this] { return stream().described > 0; }));
    }

    HandFedStream& stream()
    {
        return *streams->streams[1];
    }

    static std::string options(int first, int last)
    {
        std::string requests;
        for (int i = first; i <= last; ++i)
        {
            requests += TestClient::text("OPTIONS", "*", i, "", "");
        }
        return requests;
    }

    /// Retries deferred requests, and waits for that.
    void retry()
    {
        loop_->retryDeferred();
        runOn(loop_->events(), [] {});
    }
};

TEST_F(CongestedConnectionTest, TheDeferredRequestIsAnsweredWhenTheClientReadsAgain)
{
    congest();
    stream().description = Description::ready;
    retry();
    const int before = stream().described;
    EXPECT_EQ(before, 1) << "the client owes too much";
    carrier_.lock()->stall(false);
    for (int i = 1; i <= answered + 1; ++i)
    {
        const test::Received response = client_->response();
        ASSERT_EQ(response.status, 200) << i;
        ASSERT_EQ(response.header("CSeq"), std::to_string(i));
    }
}

TEST_F(CongestedConnectionTest, ClientThatReadsNothingIsClosedEvenWithADeferredRequest)
{
    congest();
    retry();
    time.advance(RtspConnection::maxDeferral);
    retry();
    time.advance(std::chrono::milliseconds(config.limits.handshakeTimeout * 1000));
    EXPECT_TRUE(client_->ended());
}

}  // namespace
}  // namespace refhost
