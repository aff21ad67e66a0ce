#include "refhost/http/ConfigRoutes.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "refhost/config/ConfigWriter.h"
#include "refhost/http/JsonDocument.h"

namespace refhost
{
namespace
{

constexpr int unprocessable = 422;
constexpr int unavailable = 503;
constexpr std::chrono::seconds maxReload{15};
constexpr std::chrono::milliseconds grain{20};

/// \returns nothing when it takes too long, or nobody waits for it any more
std::optional<Reloader::Outcome> outcomeOf(Reloader& reloader, const std::atomic<bool>& cancelled)
{
    const auto outcome = std::make_shared<std::promise<Reloader::Outcome>>();
    auto future = outcome->get_future();
    reloader.requestReload([outcome](const Reloader::Outcome& came) { outcome->set_value(came); });
    const auto end = std::chrono::steady_clock::now() + maxReload;
    while (future.wait_for(grain) != std::future_status::ready)
    {
        if (cancelled.load() || std::chrono::steady_clock::now() > end)
        {
            return std::nullopt;
        }
    }
    return future.get();
}

HttpReply reload(const ServerView& view, const HttpRequest& request)
{
    const auto outcome =
        view.reloader == nullptr ? std::nullopt : outcomeOf(*view.reloader, *request.cancelled);
    if (!outcome)
    {
        return HttpReply::problem(unavailable, "The configuration was not read again in time.");
    }
    if (!outcome->succeeded())
    {
        std::string reasons;
        for (const std::string& problem : outcome->problems)
        {
            reasons += (reasons.empty() ? "" : "; ") + problem;
        }
        return HttpReply::problem(unprocessable, "Nothing changed: " + reasons);
    }
    return HttpReply::json(JsonDocument::of({{"applied", outcome->applied},
                                             {"needRestart", outcome->needRestart},
                                             {"warnings", outcome->warnings}}));
}

}  // namespace

void ConfigRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/config", HttpAccess::server(Right::admin), [view](const HttpRequest&) {
                    return HttpReply::json(JsonDocument::of({{"toml", ConfigWriter::write(*view.config())}}));
                }});
    router.add({"POST", "/api/v1/reload", HttpAccess::server(Right::admin),
                [view](const HttpRequest& request) { return reload(view, request); }, true});
}

}  // namespace refhost
