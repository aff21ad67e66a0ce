#include "refhost/config/CameraSet.h"

#include <algorithm>

#include "refhost/base/Decimal.h"

namespace refhost
{
namespace
{

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = std::min(text.find_first_not_of(' '), text.size());
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

std::optional<std::pair<int, int>> rangeOf(std::string_view text)
{
    const std::size_t dash = text.find('-');
    const auto first = parseDecimal<int>(trimmed(text.substr(0, dash)), CameraSet::maxId);
    const auto last = dash == std::string_view::npos
                          ? first
                          : parseDecimal<int>(trimmed(text.substr(dash + 1)), CameraSet::maxId);
    return first && last && *first <= *last ? std::optional(std::pair(*first, *last)) : std::nullopt;
}

}  // namespace

CameraSet CameraSet::all()
{
    CameraSet set;
    set.all_ = true;
    return set;
}

std::optional<CameraSet> CameraSet::parse(std::string_view text)
{
    text = trimmed(text);
    if (text == "*")
    {
        return all();
    }
    CameraSet set;
    if (text == "none")
    {
        return set;
    }
    for (;;)
    {
        const std::size_t comma = text.find(',');
        const auto range = rangeOf(text.substr(0, comma));
        if (!range)
        {
            return std::nullopt;
        }
        set.ranges_.push_back(*range);
        if (comma == std::string_view::npos)
        {
            return set;
        }
        text.remove_prefix(comma + 1);
    }
}

bool CameraSet::contains(std::optional<int> camera) const
{
    return all_ || (camera && std::any_of(ranges_.begin(), ranges_.end(),
                                          [camera](const std::pair<int, int>& range)
                                          { return range.first <= *camera && *camera <= range.second; }));
}

bool CameraSet::empty() const
{
    return !all_ && ranges_.empty();
}

void CameraSet::add(const CameraSet& other)
{
    all_ = all_ || other.all_;
    ranges_.insert(ranges_.end(), other.ranges_.begin(), other.ranges_.end());
}

}  // namespace refhost
