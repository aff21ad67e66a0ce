#include "refhost/access/ConnectionLogin.h"

#include <utility>

#include "refhost/base/AuditLog.h"

namespace refhost
{

using Verdict = Authenticator::Verdict;

ConnectionLogin::ConnectionLogin(UserAccess& users) : users_(users) {}

ConnectionLogin::Outcome ConnectionLogin::attempt(const Request& request, bool last)
{
    Outcome out;
    if (isCertified(request))
    {
        user_ = request.certificate;
        out.result = Result::granted;
        out.user = user_;
        return out;
    }
    std::string claimed;
    const bool attempted = users_.authenticator.enabled() && !request.authorization.empty();
    if (attempted)
    {
        claimed = Authenticator::claimedUser(request.authorization);
        if (!admit(request, claimed, out))
        {
            return out;
        }
    }
    Authenticator::Decision decision = users_.authenticator.check({request.method,
                                                                   request.uri,
                                                                   request.authorization,
                                                                   {request.peer.key(), request.connection},
                                                                   users_.takesBasic(request.encrypted),
                                                                   request.same});
    admitted_ = decision.verdict == Verdict::pending && !last;
    switch (decision.verdict)
    {
        case Verdict::granted:
            out.result = Result::granted;
            out.user = std::move(decision.user);
            if (out.user != user_)
            {
                users_.brake.succeeded(request.peer.key(), out.user);
                user_ = out.user;
            }
            break;
        case Verdict::denied:
            if (attempted)
            {
                noteFailure(request, claimed, decision.denial);
            }
            break;
        case Verdict::stale:
            out.result = Result::stale;
            break;
        case Verdict::pending:
            out.result = last ? Result::busy : Result::pending;
            break;
        case Verdict::busy:
            out.result = Result::busy;
            break;
    }
    return out;
}

bool ConnectionLogin::isCertified(const Request& request) const
{
    return users_.takesCertificates() && !request.certificate.empty() && request.authorization.empty() &&
           users_.rights.rules()->knows(request.certificate);
}

/// \returns false, with `out` as it is answered, for a request that must wait or is refused
bool ConnectionLogin::admit(const Request& request, std::string_view claimed, Outcome& out)
{
    const bool waited = std::exchange(wait_, nullptr) != nullptr;
    if (waited || std::exchange(admitted_, false))
    {
        return true;
    }
    const bool known = !user_.empty() && user_ == claimed;
    LoginBrake::Admission admission = users_.brake.admit(request.peer.key(), claimed, known);
    out.span = admission.span;
    switch (admission.kind)
    {
        case LoginBrake::Admission::Kind::proceed:
            return true;
        case LoginBrake::Admission::Kind::wait:
            wait_ = std::move(admission.wait);
            out.result = Result::delayed;
            return false;
        case LoginBrake::Admission::Kind::refuse:
            break;
    }
    out.result = Result::refused;
    AuditLog::authenticationRefused(request.peer, claimed,
                                    std::chrono::ceil<std::chrono::seconds>(admission.span), request.uri);
    return false;
}

void ConnectionLogin::noteFailure(const Request& request, std::string_view claimed,
                                  Authenticator::Denial denial)
{
    if (Authenticator::isGuess(denial))
    {
        users_.brake.failed(request.peer.key(), claimed);
    }
    AuditLog::authenticationFailed(request.peer, claimed, Authenticator::nameOf(denial), request.uri);
}

void ConnectionLogin::giveUp()
{
    wait_.reset();
}

const std::string& ConnectionLogin::user() const
{
    return user_;
}

}  // namespace refhost
