#include "refhost/ingest/client/CameraRequests.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

constexpr int statusOk = 200;
constexpr int statusUnauthorized = 401;

}  // namespace

CameraRequests::CameraRequests(CameraLogin login, bool carried) : login_(std::move(login)), carried_(carried)
{
}

std::string CameraRequests::make(std::string method, std::string uri, Headers headers)
{
    Request request;
    request.method = std::move(method);
    request.uri = std::move(uri);
    request.headers = std::move(headers);
    return write(std::move(request));
}

CameraRequests::Answer CameraRequests::take(const CameraMessage& answer)
{
    const auto sequence = leadingDecimal<unsigned>(answer.header("cseq"));
    auto found = std::find_if(pending_.begin(), pending_.end(),
                              [&](const Request& request) { return sequence == request.sequence; });
    if (found == pending_.end())
    {
        // An old number is a late answer where a request was given up, and a camera's fault otherwise.
        if (pending_.empty() || (gaveUp_ && sequence && *sequence < pending_.front().sequence))
        {
            return Answer::unexpected;
        }
        found = pending_.begin();
    }
    request_ = std::move(*found);
    pending_.erase(found);
    if (answer.status == statusUnauthorized && mayLogIn(answer))
    {
        return Answer::again;
    }
    accepted_ = accepted_ || (request_.loggedIn && answer.status == statusOk);
    return Answer::final;
}

std::string CameraRequests::again()
{
    return write(std::move(request_));
}

void CameraRequests::giveUp()
{
    gaveUp_ = true;
    pending_.clear();
}

std::string CameraRequests::answerTo(std::string_view method, const CameraMessage& request)
{
    constexpr std::string_view granted[] = {"OPTIONS",  "GET_PARAMETER", "SET_PARAMETER",
                                            "ANNOUNCE", "REDIRECT",      "TEARDOWN"};
    const bool known = std::find(std::begin(granted), std::end(granted), method) != std::end(granted);
    std::string text = known ? "RTSP/1.0 200 OK\r\n" : "RTSP/1.0 501 Not Implemented\r\n";
    if (const auto sequence = leadingDecimal<std::uint64_t>(request.header("cseq")))
    {
        text += fmt::format("CSeq: {}\r\n", *sequence);
    }
    if (method == "OPTIONS")
    {
        text += "Public: OPTIONS, GET_PARAMETER, SET_PARAMETER, ANNOUNCE, REDIRECT, TEARDOWN\r\n";
    }
    return text + "\r\n";
}

/// A password that was refused is not tried again, so that no camera locks its user out; but a nonce that is used
/// up is replaced.
bool CameraRequests::mayLogIn(const CameraMessage& answer)
{
    if (!login_.challenge(answer) || request_.retried)
    {
        return false;
    }
    request_.retried = request_.loggedIn;
    return !request_.loggedIn || accepted_ || carried_ || login_.stale();
}

std::string CameraRequests::write(Request request)
{
    request.sequence = ++sequence_;
    std::string text = fmt::format("{} {} RTSP/1.0\r\nCSeq: {}\r\nUser-Agent: ovrtspd\r\n", request.method,
                                   request.uri, request.sequence);
    const std::string authorization = login_.authorization(request.method, request.uri);
    request.loggedIn = !authorization.empty();
    if (request.loggedIn)
    {
        text += fmt::format("Authorization: {}\r\n", authorization);
    }
    for (const auto& [name, value] : request.headers)
    {
        text += fmt::format("{}: {}\r\n", name, value);
    }
    text += "\r\n";
    if (pending_.size() == maxPending)
    {
        pending_.pop_front();
        gaveUp_ = true;
    }
    pending_.push_back(std::move(request));
    return text;
}

}  // namespace refhost
