#pragma once

#include <chrono>
#include <string>

#include "hostapi/description/RecordInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// What the contract suite needs from a host beyond the host contract: one definition per host.
class HostUnderTest
{
public:
    /// Before and after each test that uses streams: camera 1 has stream 0 with a video and an audio track.
    static void prepareStreams();
    static void dropStreams();

    /// Makes the description of a stream fail. \param[out] cameraId, streamId  the stream to describe
    static void prepareFailingStream(int& cameraId, int& streamId);

    /// Makes the description of a recording fail until dropStreams().
    /// \param[out] record  the recording to describe
    static void prepareFailingRecording(RecordInfo& record);

    /// A connection that the host's dispatchers take, of kind IConnection::udpUnicast.
    static SafePointer<IConnection> makeConnection();
    /// Number of those connections.
    static int livingConnections();

    /// The clock that OrvaneTime::wait() advances.
    static std::chrono::microseconds now();
};
