#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp.

#include <string>
#include <string_view>

#include "refhost/capture/CameraMessages.h"
#include "refhost/ingest/client/RtspClientEvents.h"

namespace refhost
{

/// What the status codes of a camera's answers mean for its client (RFC 2326, section 11).
class RtspRefusal
{
public:
    static constexpr int ok = 200;
    static constexpr int unauthorized = 401;
    static constexpr int sessionNotFound = 454;
    static constexpr int unsupportedTransport = 461;

    static bool isRedirect(int status);

    /// Status code and reason of an answer, for the log.
    static std::string outcomeOf(const CameraMessage& answer);

    /// Why a client ends that gets this answer to a request.
    static RtspClientEnd endOf(std::string_view method, const CameraMessage& answer);
};

}  // namespace refhost
