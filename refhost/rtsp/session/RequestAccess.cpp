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
    return services_.users->rights.rules()->allows(context.user, right, target.camera);
}

void RequestAccess::refuse(RequestContext& context, const MediaTarget& /*target*/, Right right) const
{
    if (context.user.empty() && services_.users->rights.rules()->hasLogins())
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
    for (const std::string& value : services_.users->challenges(
             stale, {connection_.peer().key(), connection_.serial()}, connection_.encrypted()))
    {
        out.header("WWW-Authenticate", value);
    }
    context.send();
}

}  // namespace refhost
