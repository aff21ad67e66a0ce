#include "refhost/rtsp/session/SessionTracks.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtsp/session/FakeControllers.h"

namespace refhost
{
namespace
{

using test::ControllerScript;
using test::FakeController;

class SessionTracksTest : public testing::Test
{
protected:
    SessionTrack& add(const std::string& id, std::uint64_t connection = 0)
    {
        auto track = std::make_unique<SessionTrack>(id);
        track->delivery.connection = connection;
        SessionTrack& added = *track;
        tracks.add(std::move(track));
        return added;
    }

    RtspStatus select(std::string_view id)
    {
        selected.clear();
        return tracks.select(id, *controller, selected);
    }

    // A fixture's destructor must not throw.
    const std::unique_ptr<SafePointer<IRTSPController>> controller =
        std::make_unique<SafePointer<IRTSPController>>(
            new FakeController(std::make_shared<ControllerScript>()));
    SessionTracks tracks;
    SessionTracks::Selection selected;
};

TEST_F(SessionTracksTest, AnEmptyIdMeansAllOfThem)
{
    EXPECT_EQ(select(""), rtspInvalidState) << "none was set up";
    add("trackID=0");
    add("trackID=1");
    EXPECT_EQ(select(""), rtspOk);
    EXPECT_EQ(SessionTracks::idsOf(selected), (std::vector<std::string>{"trackID=0", "trackID=1"}));
}

TEST_F(SessionTracksTest, ATrackIsSelectedByItsId)
{
    add("trackID=0");
    SessionTrack& second = add("trackID=1");
    EXPECT_EQ(select("trackID=1"), rtspOk);
    EXPECT_EQ(selected, SessionTracks::Selection{&second});
}

TEST_F(SessionTracksTest, AnUnknownTrackIsNotTakenForOneThatIsNotSetUp)
{
    EXPECT_EQ(select("trackID=0"), rtspInvalidState);
    EXPECT_EQ(select("nosuch"), rtspNotFound);
}

TEST_F(SessionTracksTest, KnowWhichConnectionCarriesThem)
{
    add("trackID=0", 7);
    EXPECT_TRUE(tracks.carriedBy(7));
    EXPECT_FALSE(tracks.carriedBy(8));
}

TEST_F(SessionTracksTest, KnowWhetherSomeOrAllOfASelectionPlay)
{
    SessionTrack& first = add("trackID=0");
    add("trackID=1");
    EXPECT_FALSE(SessionTracks::anyPlaying(tracks.all()));
    first.play();
    EXPECT_TRUE(SessionTracks::anyPlaying(tracks.all()));
    EXPECT_FALSE(SessionTracks::allPlaying(tracks.all()));
    EXPECT_TRUE(SessionTracks::allPlaying({&first}));
}

TEST_F(SessionTracksTest, ARemovedTrackIsGone)
{
    const SessionTrack& first = add("trackID=0");
    add("trackID=1");
    tracks.remove(first);
    EXPECT_EQ(tracks.find("trackID=0"), nullptr);
    EXPECT_EQ(tracks.size(), 1U);
    tracks.clear();
    EXPECT_TRUE(tracks.empty());
}

}  // namespace
}  // namespace refhost
