#include "refhost/rtsp/message/StatusMap.h"

#include <array>

#include "refhost/base/HostStatus.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;

constexpr std::array<StatusMap::Row, StatusMap::rowCount> table{{
    {statusRefused, Step::create,
     rtspInternalError},  // the platform type has no codec: a wiring error of ours
    {statusRefused, Step::setup, rtspUnsupportedTransport},
    {statusRefused, Step::control, rtspInvalidState},
    {statusNotFound, Step::create, rtspNotFound},
    {statusNotFound, Step::setup, rtspNotFound},
    {statusNotFound, Step::control, rtspNotFound},
    {hostStreamUnknown, Step::create, rtspNotFound},
    {hostStreamUnknown, Step::setup, rtspNotFound},
    {hostStreamUnknown, Step::control, rtspNotFound},
    {hostStreamNotReady, Step::create, rtspServiceUnavailable},
    {hostStreamNotReady, Step::setup, rtspServiceUnavailable},
    {hostStreamNotReady, Step::control, rtspServiceUnavailable},
    {hostStreamFailed, Step::create, rtspServiceUnavailable},
    {hostStreamFailed, Step::setup, rtspServiceUnavailable},
    {hostStreamFailed, Step::control, rtspServiceUnavailable},
    {hostTrackUnknown, Step::setup, rtspNotFound},
    {hostTrackUnknown, Step::control, rtspInvalidState},
    {hostConnectionUnusable, Step::setup, rtspUnsupportedTransport},
    {hostConnectionUnusable, Step::control, rtspInvalidState},
    {hostTalkBackUnavailable, Step::setup, rtspServiceUnavailable},
    {hostTalkBackUnavailable, Step::control, rtspServiceUnavailable},
    {hostTalkBackBusy, Step::setup, rtspNotEnoughBandwidth},
    {hostTalkBackBusy, Step::control, rtspNotEnoughBandwidth},
    {hostTalkSenderLeft, Step::setup, rtspInvalidState},
    {hostTalkSenderLeft, Step::control, rtspInvalidState},
    {statusNoPlayer, Step::setup, rtspServiceUnavailable},
    {statusNoPlayer, Step::control, rtspServiceUnavailable},
    {statusPlayerUnusable, Step::setup, rtspServiceUnavailable},
    {statusPlayerUnusable, Step::control, rtspServiceUnavailable},
    {statusThreadFailed, Step::setup, rtspServiceUnavailable},
    {statusThreadFailed, Step::control, rtspServiceUnavailable},
    {hostRecordingUnknown, Step::create, rtspNotFound},
    {hostRecordingUnknown, Step::setup, rtspNotFound},
    {hostRecordingUnknown, Step::control, rtspNotFound},
    {hostRecordingsIncomplete, Step::create, rtspServiceUnavailable},
    {hostRecordingsIncomplete, Step::setup, rtspServiceUnavailable},
    {hostRecordingsIncomplete, Step::control, rtspServiceUnavailable},
    {hostRangeInvalid, Step::setup, rtspInvalidRange},
    {hostRangeInvalid, Step::control, rtspInvalidRange},
}};

}  // namespace

RtspStatus StatusMap::ofCode(Step step, int code)
{
    if (code == statusSuccess)
    {
        return rtspOk;
    }
    for (const Row& row : table)
    {
        if (row.code == code && row.step == step)
        {
            return row.status;
        }
    }
    return rtspInternalError;
}

std::string_view StatusMap::reason(int status)
{
    switch (status)
    {
        case rtspOk:
            return "OK";
        case rtspBadRequest:
            return "Bad Request";
        case rtspUnauthorized:
            return "Unauthorized";
        case rtspForbidden:
            return "Forbidden";
        case rtspNotFound:
            return "Not Found";
        case rtspMethodNotAllowed:
            return "Method Not Allowed";
        case rtspNotAcceptable:
            return "Not Acceptable";
        case rtspEntityTooLarge:
            return "Request Entity Too Large";
        case rtspUriTooLong:
            return "Request-URI Too Large";
        case rtspUnsupportedMediaType:
            return "Unsupported Media Type";
        case rtspParameterNotUnderstood:
            return "Parameter Not Understood";
        case rtspNotEnoughBandwidth:
            return "Not Enough Bandwidth";
        case rtspSessionNotFound:
            return "Session Not Found";
        case rtspInvalidState:
            return "Method Not Valid in This State";
        case rtspInvalidRange:
            return "Invalid Range";
        case rtspAggregateNotAllowed:
            return "Aggregate Operation Not Allowed";
        case rtspUnsupportedTransport:
            return "Unsupported Transport";
        case rtspKeyManagementFailure:
            return "Key Management Failure";
        case rtspInternalError:
            return "Internal Server Error";
        case rtspNotImplemented:
            return "Not Implemented";
        case rtspServiceUnavailable:
            return "Service Unavailable";
        case rtspVersionNotSupported:
            return "RTSP Version Not Supported";
        case rtspOptionNotSupported:
            return "Option Not Supported";
        default:
            return "Unknown";
    }
}

const StatusMap::Row* StatusMap::rows()
{
    return table.data();
}

}  // namespace refhost
