#include "refhost/playback/PlaybackTracks.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

std::shared_ptr<PlaybackTrack> makeTrack(const std::string& id, const std::string& mediaType)
{
    SubMediaInfo info;
    info.trackId = id;
    info.mediaType = mediaType;
    return std::make_shared<PlaybackTrack>(std::weak_ptr<PlaybackSession>(), info, 1364,
                                           RtcpWriter::randomName(), PlaybackSettings());
}

TEST(PlaybackTracks, AreFoundByIdAndByKind)
{
    PlaybackTracks tracks;
    EXPECT_TRUE(tracks.empty());
    const auto audio = makeTrack("a", "audio");
    tracks.add(audio);
    EXPECT_EQ(tracks.find("a"), audio);
    EXPECT_EQ(tracks.find("b"), nullptr);
    EXPECT_EQ(tracks.of(false), audio);
    EXPECT_EQ(tracks.of(true), nullptr);
    tracks.remove(*audio);
    EXPECT_TRUE(tracks.empty());
}

TEST(PlaybackTracks, ArePlayingWhileOneOfThemIs)
{
    PlaybackTracks tracks;
    const auto audio = makeTrack("a", "audio");
    const auto video = makeTrack("v", "video");
    tracks.add(audio);
    tracks.add(video);
    EXPECT_FALSE(tracks.anyPlaying());
    audio->start();
    EXPECT_TRUE(tracks.anyPlaying());
    audio->pause();
    EXPECT_FALSE(tracks.anyPlaying());
}

TEST(PlaybackTracks, EachVisitsThePresentTracks)
{
    PlaybackTracks tracks;
    tracks.add(makeTrack("v", "video"));
    std::string visited;
    tracks.each([&visited](const PlaybackTrack& track) { visited += track.id; });
    EXPECT_EQ(visited, "v");
}

}  // namespace
}  // namespace refhost
