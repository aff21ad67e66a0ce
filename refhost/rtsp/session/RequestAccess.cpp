#include "refhost/rtsp/session/RequestAccess.h"

#include <string>

#include "refhost/base/AuditLog.h"

namespace refhost
{

RequestAccess::RequestAccess(RtspServices& services, ClientConnection& connection)
    : services_(services), connection_(connection)
{
}

bool RequestAccess::allows(const RequestContext& context, const MediaTarget& target, Right right) const
{
    return services_.access.rules()->allows(context.user, right, target.camera);
}

void RequestAccess::refuse(RequestContext& context, const MediaTarget& /*target*/, Right right) const
{
    if (context.user.empty() && services_.access.rules()->hasLogins())
    {
        challenge(context, false);
        return;
    }
    AuditLog::rightRefused(connection_.peer(), context.user, nameOf(right), context.request.uri);
    context.answer(rtspForbidden);
}

void RequestAccess::challenge(RequestContext& context, bool stale) const
{
    ResponseWriter& out = context.start(rtspUnauthorized);
    services_.authenticator.challenge(out, stale, client(), takesBasic());
    context.send();
}

bool RequestAccess::takesBasic() const
{
    const auto policy = services_.policy.get();
    const std::string& basic = policy->auth.basic;
    return basic == "always" || (basic == "tls-only" && connection_.encrypted());
}

Authenticator::Client RequestAccess::client() const
{
    return {connection_.peer().key(), connection_.serial()};
}

}  // namespace refhost
