#include "refhost/rtsp/session/ConnectionSessions.h"

#include <algorithm>
#include <utility>

#include "refhost/rtsp/message/SessionHeader.h"

namespace refhost
{

ConnectionSessions::ConnectionSessions(RtspServices& services, ClientConnection& connection)
    : services_(services), connection_(connection)
{
}

std::shared_ptr<RtspSession> ConnectionSessions::find(const RequestContext& context)
{
    auto session = services_.sessions.find(SessionHeader::id(context.request.value("Session")));
    if (session == nullptr || !session->owner().admits(connection_.peer().key(), context.user))
    {
        return nullptr;
    }
    use(session);
    session->noteRequest(connection_.serial(), services_.now());
    return session;
}

/// Answers the request if there is no such session, or the URL is of another presentation.
std::shared_ptr<RtspSession> ConnectionSessions::of(RequestContext& context)
{
    auto session = find(context);
    if (session == nullptr)
    {
        context.answer(rtspSessionNotFound);
        return nullptr;
    }
    if (session->presentation() != context.url.presentation)
    {
        context.answer(rtspNotFound);
        return nullptr;
    }
    return session;
}

void ConnectionSessions::addHeader(ResponseWriter& out, const RtspSession& session) const
{
    out.startHeader("Session");
    SessionHeader::append(out.text(), session.id(),
                          std::chrono::seconds(services_.policy.get()->limits.sessionTimeout));
    out.endHeader();
}

/// Remembers a session and forgets ended ones.
void ConnectionSessions::use(const std::shared_ptr<RtspSession>& session)
{
    if (!sessions_.empty() && sessions_.back().lock() == session)
    {
        return;
    }
    sessions_.erase(std::remove_if(sessions_.begin(), sessions_.end(),
                                   [&session](const std::weak_ptr<RtspSession>& other)
                                   {
                                       const auto held = other.lock();
                                       return held == nullptr || held == session;
                                   }),
                    sessions_.end());
    sessions_.push_back(session);
}

bool ConnectionSessions::carriesSession()
{
    return std::any_of(sessions_.begin(), sessions_.end(),
                       [](const std::weak_ptr<RtspSession>& weak)
                       {
                           const auto session = weak.lock();
                           return session != nullptr && !session->over();
                       });
}

void ConnectionSessions::connectionAnswered(MonotonicTime time)
{
    for (const std::weak_ptr<RtspSession>& weak : sessions_)
    {
        if (const auto session = weak.lock())
        {
            session->connectionAnswered(connection_.serial(), time);
        }
    }
}

void ConnectionSessions::connectionEnded()
{
    for (const std::weak_ptr<RtspSession>& weak : std::exchange(sessions_, {}))
    {
        const auto session = weak.lock();
        if (session != nullptr && session->connectionEnded(connection_.serial(), services_.now()))
        {
            services_.sessions.end(session);
        }
    }
}

}  // namespace refhost
