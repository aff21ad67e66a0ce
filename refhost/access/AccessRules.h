#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/access/Right.h"
#include "refhost/config/CameraSet.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// Who may do what with which camera, as one version of the configuration says. Knows nothing of protocols
/// and passwords.
///
/// Without users everybody may do everything. With users, a user may do what its grants and those of its groups
/// say, or everything where there are none; whoever did not log in may do what the user "anonymous" may, by
/// default nothing. Users that are not configured may do nothing.
///
/// Threads: any; constant.
class AccessRules
{
public:
    /// Requires: as ConfigReader accepts them. Grants that it refuses give nothing.
    AccessRules(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups);

    /// Whether anything is refused to anybody: users are configured.
    bool enabled() const;

    /// \param user    empty: a client that did not log in
    /// \param camera  nothing: not known, such as that of a URL that names none
    bool allows(std::string_view user, Right right, std::optional<int> camera) const;

    /// Whether clients that did not log in may do anything.
    bool hasAnonymous() const;
    /// Whether there are users to log in as.
    bool hasLogins() const;
    /// Whether it is possible to log in as `user`.
    bool knows(std::string_view user) const;

private:
    using Grants = std::array<CameraSet, allRights.size()>;

    static void add(Grants& grants, const GrantsConfig& config);

    bool enabled_;
    std::optional<Grants> anonymous_;
    std::unordered_map<std::string, Grants> users_;
};

}  // namespace refhost
