#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp.

#include <chrono>

#include "refhost/base/Times.h"
#include "refhost/ingest/client/CameraTransport.h"

namespace refhost
{

/// How an RtspClient asks for media, and how long it waits: none and a year are the bounds of each time.
struct RtspClientOptions
{
    CameraTransport transport = CameraTransport::tcp;  ///< what is requested first
    /// The other transport is requested where the camera refuses that one. Never UDP where the connection is
    /// encrypted: media would not be.
    bool otherTransport = true;
    Duration openTimeout = std::chrono::seconds(30);     ///< from start() to the answer to PLAY
    Duration connectTimeout = std::chrono::seconds(10);  ///< for each connection, its host's address included
    Duration answerTimeout = std::chrono::seconds(10);   ///< for each answer
    Duration optionsTimeout =
        std::chrono::seconds(3);  ///< for that to OPTIONS, which some cameras never give
    Duration silenceTimeout = std::chrono::seconds(10);  ///< without an RTP packet, once playing
    /// Without a first packet over UDP, where TCP may be requested instead.
    Duration udpTimeout = std::chrono::seconds(5);
    Duration teardownTimeout = std::chrono::milliseconds(500);

    /// The same with times within the bounds, which can be added to any instant.
    RtspClientOptions bounded() const;
};

}  // namespace refhost
