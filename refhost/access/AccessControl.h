#pragma once
// Tested by tests/refhost/access/AccessRules_test.cpp.

#include <memory>

#include "refhost/access/AccessRules.h"
#include "refhost/base/Replaceable.h"

namespace refhost
{

/// The present AccessRules of the server, which another configuration replaces. Threads: any; one lock of its
/// own.
class AccessControl
{
public:
    explicit AccessControl(AccessRules rules);

    /// Never null.
    std::shared_ptr<const AccessRules> rules() const;

    /// From now on rules() returns these. What runs under the former ones is its owners' to end.
    void replace(AccessRules rules);

private:
    Replaceable<AccessRules> rules_;
};

}  // namespace refhost
