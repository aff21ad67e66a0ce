#pragma once
// Tested by tests/refhost/rtsp/session/RtspServices_test.cpp.

#include "refhost/config/Config.h"
#include "refhost/rtp/srtp/SrtpSuite.h"
#include "refhost/rtsp/session/MediaSecurity.h"

namespace refhost
{

/// What of one configuration requests and connections are judged by, besides rights. A value type.
struct ServerPolicy
{
    explicit ServerPolicy(const ServerConfig& config)
        : limits(config.limits),
          security(config),
          srtpSuite(srtpSuiteNamed(config.srtp.suite).value_or(SrtpSuite::aesCm128HmacSha1Tag80))
    {
    }

    LimitsConfig limits;
    MediaSecurity security;
    SrtpSuite srtpSuite;
};

}  // namespace refhost
