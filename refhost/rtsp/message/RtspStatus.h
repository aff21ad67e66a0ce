#pragma once
// Tested by tests/refhost/rtsp/message/StatusMap_test.cpp.

namespace refhost
{

/// The status codes of this server's responses (RFC 2326, section 7.1.1). StatusMap has their reason phrases.
enum RtspStatus
{
    rtspOk = 200,
    rtspBadRequest = 400,
    rtspUnauthorized = 401,
    rtspForbidden = 403,
    rtspNotFound = 404,
    rtspMethodNotAllowed = 405,
    rtspNotAcceptable = 406,
    rtspEntityTooLarge = 413,
    rtspUriTooLong = 414,
    rtspUnsupportedMediaType = 415,
    rtspParameterNotUnderstood = 451,
    rtspNotEnoughBandwidth = 453,
    rtspSessionNotFound = 454,
    rtspInvalidState = 455,
    rtspInvalidRange = 457,
    rtspAggregateNotAllowed = 459,
    rtspUnsupportedTransport = 461,
    rtspKeyManagementFailure = 463,
    rtspInternalError = 500,
    rtspNotImplemented = 501,
    rtspServiceUnavailable = 503,
    rtspVersionNotSupported = 505,
    rtspOptionNotSupported = 551,
};

}  // namespace refhost
