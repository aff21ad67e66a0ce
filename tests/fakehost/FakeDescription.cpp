#include "tests/fakehost/FakeDescription.h"

#include "tests/SampleTracks.h"

MediaInfo FakeDescription::presentation(bool withBackChannel)
{
    MediaInfo info;
    info.addSubMediaInfo(SampleTracks::video());
    info.addSubMediaInfo(SampleTracks::audio());
    if (withBackChannel)
    {
        info.addSubMediaInfo(backChannel());
    }
    return info;
}

SubMediaInfo FakeDescription::backChannel()
{
    SubMediaInfo track = SampleTracks::audio();
    track.trackId = "trackID=2";
    track.setAudioBackInfoFlag(true);
    return track;
}

std::string FakeDescription::textOf(const RecordInfo& record)
{
    return "camera " + std::to_string(record.getCameraId()) + ", " +
           std::to_string(record.getRecordBeginTime()) + " to " + std::to_string(record.getRecordEndTime()) +
           ", " + record.getDeviceId() + ", " + record.getDeviceIP();
}
