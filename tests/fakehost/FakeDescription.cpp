#include "tests/fakehost/FakeDescription.h"

MediaInfo FakeDescription::presentation(bool withBackChannel)
{
    MediaInfo info;
    info.addSubMediaInfo(video());
    info.addSubMediaInfo(audio());
    if (withBackChannel)
    {
        info.addSubMediaInfo(backChannel());
    }
    return info;
}

SubMediaInfo FakeDescription::video()
{
    SubMediaInfo track;
    track.trackId = "trackID=0";
    track.mediaType = "video";
    track.encodingName = "H264";
    track.formatParameters = "packetization-mode=1";
    track.payloadType = 96;
    track.clockRate = 90000;
    track.width = 1280;
    track.height = 720;
    track.frameRate = 25;
    return track;
}

SubMediaInfo FakeDescription::audio()
{
    SubMediaInfo track;
    track.trackId = "trackID=1";
    track.mediaType = "audio";
    track.encodingName = "PCMU";
    track.payloadType = 0;
    track.clockRate = 8000;
    track.channels = 1;
    return track;
}

SubMediaInfo FakeDescription::backChannel()
{
    SubMediaInfo track = audio();
    track.trackId = "trackID=2";
    track.setAudioBackInfoFlag(true);
    return track;
}
