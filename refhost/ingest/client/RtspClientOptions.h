#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp.

#include <chrono>

#include "refhost/base/Times.h"

namespace refhost
{

/// How an RtspClient asks for media, and how long it waits: none and a year are the bounds of each time.
struct RtspClientOptions
{
    enum class Transport
    {
        tcp  ///< interleaved in the RTSP connection
    };

    Transport transport = Transport::tcp;
    Duration openTimeout = std::chrono::seconds(30);     ///< from start() to the answer to PLAY
    Duration connectTimeout = std::chrono::seconds(10);  ///< for each connection, its host's address included
    Duration answerTimeout = std::chrono::seconds(10);   ///< for each answer
    Duration silenceTimeout = std::chrono::seconds(10);  ///< without an RTP packet, once playing
    Duration teardownTimeout = std::chrono::milliseconds(500);
};

}  // namespace refhost
