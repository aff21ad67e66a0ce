#include "refhost/access/AccessRules.h"

#include <algorithm>

namespace refhost
{

AccessRules::AccessRules(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups)
    : enabled_(!users.empty())
{
    for (const UserConfig& user : users)
    {
        Grants grants;
        if (user.unlimited())
        {
            grants.fill(CameraSet::all());
        }
        add(grants, user.grants);
        for (const std::string& name : user.groupNames())
        {
            const auto group = std::find_if(groups.begin(), groups.end(),
                                            [&name](const GroupConfig& g) { return g.name == name; });
            if (group != groups.end())
            {
                add(grants, group->grants);
            }
        }
        if (user.isAnonymous())
        {
            anonymous_ = std::move(grants);
        }
        else
        {
            users_[user.name] = std::move(grants);
        }
    }
}

void AccessRules::add(Grants& grants, const GrantsConfig& config)
{
    const std::array<const std::string*, allRights.size()> texts{&config.live, &config.playback, &config.talk,
                                                                 &config.admin};
    for (std::size_t i = 0; i < texts.size(); ++i)
    {
        grants.at(i).add(CameraSet::parse(*texts.at(i)).value_or(CameraSet()));
    }
}

bool AccessRules::enabled() const
{
    return enabled_;
}

bool AccessRules::allows(std::string_view user, Right right, std::optional<int> camera) const
{
    if (!enabled_)
    {
        return true;
    }
    const auto index = static_cast<std::size_t>(right);
    if (user.empty())
    {
        return anonymous_ && anonymous_->at(index).contains(camera);
    }
    const auto found = users_.find(std::string(user));
    return found != users_.end() && found->second.at(index).contains(camera);
}

bool AccessRules::hasAnonymous() const
{
    return anonymous_.has_value();
}

bool AccessRules::hasLogins() const
{
    return !users_.empty();
}

bool AccessRules::knows(std::string_view user) const
{
    return users_.count(std::string(user)) != 0;
}

}  // namespace refhost
