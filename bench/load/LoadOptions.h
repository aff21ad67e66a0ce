#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "bench/load/RtspUrl.h"

namespace rtspload
{

/// The command line.
struct LoadOptions
{
    RtspUrl url;
    std::vector<RtspUrl> urls;      ///< hold: the sessions' ones in turn; empty: all have `url`
    bool pace = false;              ///< hold: report how late frames come by their timestamps
    std::string transport = "tcp";  ///< "udp", "tcp" or "both": every other session TCP
    std::string mode = "cycles";    ///< "cycles", "hold" or "handshakes"
    int clients = 32;               ///< cycles: sessions at a time
    int cycles = 0;                 ///< cycles: how many are enough; 0: as many as there is time for
    int viewers = 100;              ///< hold: sessions
    double seconds = 10;            ///< how long to measure
    double baselineSeconds = 0;     ///< hold: how long to measure one viewer first
    bool untilKeyFrame = false;     ///< cycles: TEARDOWN after the first key frame, not the first packet
    bool keepWarm = false;          ///< cycles: one more viewer plays all the time
    bool allTracks = false;         ///< set up every track, not the first video track alone
    pid_t serverProcess = 0;        ///< 0: unknown
    bool tls = false;               ///< RTSP and interleaved media over TLS
    bool srtp = false;              ///< media as RTP/SAVP
    bool resume = false;            ///< handshakes: resume a session
    bool json = false;
};

}  // namespace rtspload
