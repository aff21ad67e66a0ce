#pragma once

#include "hostapi/description/SubMediaInfo.h"

/// The two tracks of the streams in most tests.
struct SampleTracks
{
    /// "trackID=0": H.264, 1280 by 720 pixels.
    static SubMediaInfo video()
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
        return track;
    }

    /// "trackID=1": PCMU.
    static SubMediaInfo audio()
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
};
