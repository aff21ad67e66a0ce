#pragma once
// Tested by tests/refhost/ingest/client/RtspClientUdp_test.cpp.

namespace refhost
{

/// How a camera sends media.
enum class CameraTransport
{
    tcp,  ///< interleaved in the RTSP connection
    udp   ///< to a pair of UDP ports for each track
};

}  // namespace refhost
