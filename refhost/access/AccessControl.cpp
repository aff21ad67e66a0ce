#include "refhost/access/AccessControl.h"

#include <utility>

namespace refhost
{

AccessControl::AccessControl(AccessRules rules) : rules_(std::move(rules)) {}

std::shared_ptr<const AccessRules> AccessControl::rules() const
{
    return rules_.get();
}

void AccessControl::replace(AccessRules rules)
{
    rules_.replace(std::move(rules));
}

}  // namespace refhost
