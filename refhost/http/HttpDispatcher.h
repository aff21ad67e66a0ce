#pragma once
// Tested by tests/refhost/http/HttpService_test.cpp.

#include <functional>

#include "refhost/base/HostClock.h"
#include "refhost/http/BackgroundWork.h"
#include "refhost/http/HttpConnection.h"
#include "refhost/http/HttpGuard.h"
#include "refhost/http/HttpRouter.h"
#include "refhost/http/RequestRate.h"

namespace refhost
{

/// From a request to its reply: rate, origin, route, user, handler. Threads: one at a time.
class HttpDispatcher
{
public:
    /// Runs a task once after a span, on the dispatcher's thread.
    using After = std::function<void(Duration span, std::function<void()> task)>;

    /// All outlive the dispatcher.
    HttpDispatcher(const HttpConfig& config, const HttpGuard& guard, const HttpRouter& router,
                   BackgroundWork& work, const HostClock& clock, After after);

    void dispatch(HttpRequest request, const HttpConnection::Respond& respond);

private:
    void authorize(const HttpRouter::Route& route, HttpRequest request,
                   const HttpConnection::Respond& respond);
    void call(const HttpRouter::Route& route, HttpRequest request, const HttpConnection::Respond& respond);

    const HttpGuard& guard_;
    const HttpRouter& router_;
    BackgroundWork& work_;
    const HostClock& clock_;
    const After after_;
    RequestRate rate_;
};

}  // namespace refhost
