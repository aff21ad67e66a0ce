#include "refhost/access/AccessControl.h"

#include <utility>

namespace refhost
{

AccessControl::AccessControl(AccessRules rules)
    : rules_(std::make_shared<const AccessRules>(std::move(rules)))
{
}

std::shared_ptr<const AccessRules> AccessControl::rules() const
{
    const MutexLock guard(mutex_);
    return rules_;
}

void AccessControl::replace(AccessRules rules)
{
    auto next = std::make_shared<const AccessRules>(std::move(rules));
    const MutexLock guard(mutex_);
    rules_.swap(next);
}

}  // namespace refhost
