#include "refhost/ingest/client/RtspRefusal.h"

#include <fmt/format.h>

#include "refhost/base/Log.h"
#include "refhost/ingest/client/CameraHeaders.h"

namespace refhost
{
namespace
{

constexpr int notFound = 404;
constexpr int gone = 410;
constexpr int notEnoughBandwidth = 453;
constexpr int serviceUnavailable = 503;

RtspClientEnd::Kind kindOf(int status)
{
    using Kind = RtspClientEnd::Kind;
    switch (status)
    {
        case RtspRefusal::unauthorized:
            return Kind::unauthorized;
        case notFound:
        case gone:
            return Kind::notFound;
        case notEnoughBandwidth:
        case serviceUnavailable:
            return Kind::busy;
        case RtspRefusal::unsupportedTransport:
            return Kind::noUsableTransport;
        default:
            return Kind::protocolError;
    }
}

}  // namespace

bool RtspRefusal::isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string RtspRefusal::outcomeOf(const CameraMessage& answer)
{
    const std::size_t space = answer.startLine.find(' ');
    return Log::safe(space == std::string::npos ? answer.startLine : answer.startLine.substr(space + 1));
}

RtspClientEnd RtspRefusal::endOf(std::string_view method, const CameraMessage& answer)
{
    return {kindOf(answer.status), fmt::format("the camera answered {} with {}", method, outcomeOf(answer)),
            answer.status, retryAfterOf(answer), std::nullopt};
}

}  // namespace refhost
