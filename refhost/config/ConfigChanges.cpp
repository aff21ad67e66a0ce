#include "refhost/config/ConfigChanges.h"

#include <algorithm>

#include "refhost/base/Log.h"
#include "refhost/config/ConfigSections.h"

namespace refhost
{
namespace
{

using Changes = std::vector<ConfigChanges::Change>;

/// Whether a key has the same value in both; a value that needs a restart is set back to the running one.
template <typename Section>
bool keepSame(const ChoiceSetting<Section>& setting, const Section& running, Section& next, bool setBack)
{
    const std::string value = setting.get(running);
    const bool same = value == setting.get(next);
    if (!same && setBack)
    {
        setting.set(next, value);
    }
    return same;
}

template <typename Section, template <typename> typename Setting>
bool keepSame(const Setting<Section>& setting, const Section& running, Section& next, bool setBack)
{
    const auto& value = setting.value.of(running);
    const bool same = value == setting.value.of(next);
    if (!same && setBack)
    {
        setting.value.in(next) = value;
    }
    return same;
}

bool isSame(const CameraConfig& one, const CameraConfig& other)
{
    return one.id == other.id;
}

bool isSame(const StreamConfig& one, const StreamConfig& other)
{
    return one.id == other.id;
}

bool isSame(const UserConfig& one, const UserConfig& other)
{
    return one.name == other.name;
}

bool isSame(const GroupConfig& one, const GroupConfig& other)
{
    return one.name == other.name;
}

std::string nameOf(const CameraConfig& camera)
{
    return "camera " + std::to_string(camera.id);
}

std::string nameOf(const StreamConfig& stream)
{
    return "stream " + std::to_string(stream.id);
}

std::string nameOf(const UserConfig& user)
{
    return "user \"" + Log::safe(user.name) + "\"";
}

std::string nameOf(const GroupConfig& group)
{
    return "group \"" + Log::safe(group.name) + "\"";
}

template <typename Section>
void compare(const Section& running, Section& next, const std::string& within, const std::string& separator,
             Changes& out);

template <typename Section, typename Parent>
void compareWithin(const SingleSection<Section, Parent>& single, const Parent& running, Parent& next,
                   const std::string&, Changes& out)
{
    compare(running.*single.values, next.*single.values, single.heading(), " ", out);
}

template <typename Section>
auto findSame(std::vector<Section>& list, const Section& section)
{
    return std::find_if(list.begin(), list.end(),
                        [&](const Section& candidate) { return isSame(candidate, section); });
}

template <typename Section, typename Parent>
void compareWithin(const SectionList<Section, Parent>& list, const Parent& running, Parent& next,
                   const std::string& within, Changes& out)
{
    const std::string prefix = within.empty() ? "" : within + ", ";
    std::vector<Section> added = next.*list.values;
    for (const Section& before : running.*list.values)
    {
        const auto after = findSame(next.*list.values, before);
        if (after == (next.*list.values).end())
        {
            out.push_back({prefix + nameOf(before) + " removed", ReloadEffect::identity});
            continue;
        }
        compare(before, *after, prefix + nameOf(before), ": ", out);
        added.erase(findSame(added, before));
    }
    for (const Section& one : added)
    {
        out.push_back({prefix + nameOf(one) + " added", ReloadEffect::identity});
    }
}

template <typename Section>
void compare(const Section& running, Section& next, const std::string& within, const std::string& separator,
             Changes& out)
{
    for (const ConfigKey<Section>& key : configKeys<Section>())
    {
        const bool setBack = key.effect == ReloadEffect::restart;
        const bool same = std::visit(
            [&](const auto& setting) { return keepSame(setting, running, next, setBack); }, key.setting);
        if (!same)
        {
            out.push_back({within + separator + std::string(key.name), key.effect});
        }
    }
    eachSectionIn<Section>([&](const auto& section) { compareWithin(section, running, next, within, out); });
}

template <typename Section>
bool someDiffers(ReloadEffect effect, const Section& one, Section other)
{
    const auto& keys = configKeys<Section>();
    return std::any_of(keys.begin(), keys.end(),
                       [&](const ConfigKey<Section>& key)
                       {
                           return key.effect == effect &&
                                  !std::visit([&](const auto& setting)
                                              { return keepSame(setting, one, other, false); },
                                              key.setting);
                       });
}

}  // namespace

ConfigChanges::ConfigChanges(const ServerConfig& running, const ServerConfig& next) : effective_(next)
{
    compare(running, effective_, "", "", changes_);
}

bool ConfigChanges::differIn(ReloadEffect effect, const CameraConfig& one, const CameraConfig& other)
{
    return someDiffers(effect, one, other);
}

bool ConfigChanges::differIn(ReloadEffect effect, const StreamConfig& one, const StreamConfig& other)
{
    return someDiffers(effect, one, other);
}

std::vector<std::string> ConfigChanges::needRestart() const
{
    std::vector<std::string> names;
    for (const Change& change : changes_)
    {
        if (change.effect == ReloadEffect::restart)
        {
            names.push_back(change.name);
        }
    }
    return names;
}

}  // namespace refhost
