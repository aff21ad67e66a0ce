#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "refhost/http/HttpService.h"
#include "tests/refhost/http/HttpTestClient.h"
#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace test
{

/// An HTTP service on a loopback port, with routes of the test and a manual clock.
class HttpServiceFixture : public testing::Test
{
protected:
    HttpServiceFixture()
    {
        config.http.listen = "127.0.0.1:0";
        config.auth.basic = "always";
    }

    ~HttpServiceFixture() override
    {
        service.reset();
    }

    /// Makes the service, for routes; start() does it otherwise.
    HttpService& make()
    {
        if (service == nullptr)
        {
            users = std::make_unique<UserAccess>(config, time);
            service = std::make_unique<HttpService>(config, *users, time);
        }
        return *service;
    }

    void start()
    {
        std::string error;
        ASSERT_TRUE(make().start(error)) << error;
    }

    void route(const std::string& method, const std::string& pattern, HttpRouter::Handler handler,
               HttpAccess permitted = HttpAccess::open(), bool background = false)
    {
        make().router().add({method, pattern, permitted, std::move(handler), background});
    }

    HttpTestClient client() const
    {
        return HttpTestClient(service->port());
    }

    /// One request on a connection of its own.
    HttpAnswer get(const std::string& target, const std::string& headers = "") const
    {
        HttpTestClient once(service->port());
        return once.get(target, headers);
    }

    /// Waits, bounded, until `done`.
    static bool eventually(const std::function<bool()>& done,
                           std::chrono::milliseconds max = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + max;
        while (!done())
        {
            if (std::chrono::steady_clock::now() > end)
            {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    static std::string basic(const std::string& base64)
    {
        return "Authorization: Basic " + base64 + "\r\n";
    }

    /// Users "viewer", who may watch camera 1, and "other", who may watch camera 2.
    void addViewers()
    {
        UserConfig viewer;
        viewer.name = "viewer";
        viewer.password = "secret";
        viewer.grants.live = "1";
        UserConfig other = viewer;
        other.name = "other";
        other.grants.live = "2";
        config.users = {viewer, other};
    }
    static std::string asViewer()
    {
        return basic("dmlld2VyOnNlY3JldA==");
    }
    static std::string asOther()
    {
        return basic("b3RoZXI6c2VjcmV0");
    }

    ServerConfig config;
    SteppedClock time;
    std::unique_ptr<UserAccess> users;
    std::unique_ptr<HttpService> service;
};

}  // namespace test
}  // namespace refhost
