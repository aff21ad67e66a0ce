#include "refhost/http/EventRoutes.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "refhost/base/ServerEvents.h"

namespace refhost
{
namespace
{

constexpr int unavailable = 503;

/// The events of one client.
class EventBody final : public BodySource
{
public:
    using Permitted = std::function<bool()>;

    EventBody(std::shared_ptr<std::atomic<std::size_t>> clients, Permitted permitted)
        : clients_(std::move(clients)), permitted_(std::move(permitted))
    {
    }
    ~EventBody() override
    {
        if (subscription_ != nullptr)
        {
            subscription_->close();
        }
        clients_->fetch_sub(1);
    }
    EventBody(const EventBody&) = delete;
    EventBody& operator=(const EventBody&) = delete;

    void start(std::function<void()> wake) override
    {
        subscription_ = ServerEvents::instance().subscribe(EventRoutes::maxWaiting, std::move(wake));
    }

    State read(std::size_t /*room*/, std::string& out) override
    {
        if (!permitted_())
        {
            return State::ended;
        }
        const ServerEvents::Subscription::Taken taken = subscription_->take();
        for (const ServerEvents::EventPtr& event : taken.events)
        {
            out.append("event: ").append(event->name).append("\ndata: ").append(event->json()).append("\n\n");
        }
        if (taken.lost > 0)
        {
            out += "event: lost\ndata: {\"count\":" + std::to_string(taken.lost) + "}\n\n";
        }
        // A comment: the client learns that the stream is open, and the server that the client is.
        out += out.empty() ? ":\n\n" : "";
        return State::waiting;
    }

    // A HEAD has it cancelled before it started.
    void cancel() override
    {
        if (subscription_ != nullptr)
        {
            subscription_->close();
        }
    }

private:
    const std::shared_ptr<std::atomic<std::size_t>> clients_;
    const Permitted permitted_;
    std::shared_ptr<ServerEvents::Subscription> subscription_;
};

}  // namespace

void EventRoutes::add(HttpRouter& router, const AccessControl& access)
{
    const auto clients = std::make_shared<std::atomic<std::size_t>>(0);
    router.add(
        {"GET", "/api/v1/events", HttpAccess::server(Right::admin),
         [clients, &access](const HttpRequest& request)
         {
             if (clients->fetch_add(1) >= maxClients)
             {
                 clients->fetch_sub(1);
                 return HttpReply::problem(unavailable, "Too many clients receive events.");
             }
             const auto permitted = [&access, user = request.user, stillLoggedIn = request.stillLoggedIn]
             { return stillLoggedIn() && access.rules()->allows(user, Right::admin, std::nullopt); };
             return HttpReply::stream("text/event-stream", std::make_shared<EventBody>(clients, permitted));
         }});
}

}  // namespace refhost
