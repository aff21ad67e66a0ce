#include "refhost/http/HttpRouter.h"

#include <cstddef>
#include <utility>

namespace refhost
{
namespace
{

using Parts = std::map<std::string, std::string, std::less<>>;

bool isPart(std::string_view segment)
{
    return segment.size() > 2 && segment.front() == '{' && segment.back() == '}';
}

bool matches(std::string_view pattern, const std::vector<std::string>& segments, Parts& parts)
{
    std::size_t number = 0;
    pattern.remove_prefix(1);
    while (true)
    {
        const std::size_t end = pattern.find('/');
        const std::string_view segment = pattern.substr(0, end);
        if (number == segments.size())
        {
            return false;
        }
        const std::string& given = segments[number++];
        if (isPart(segment) && !given.empty())
        {
            parts[std::string(segment.substr(1, segment.size() - 2))] = given;
        }
        else if (segment != given)
        {
            return false;
        }
        if (end == std::string_view::npos)
        {
            return number == segments.size();
        }
        pattern.remove_prefix(end + 1);
    }
}

bool serves(const HttpRouter::Route& route, std::string_view method)
{
    return route.method == method || (method == "HEAD" && route.method == "GET");
}

}  // namespace

void HttpRouter::add(Route route)
{
    routes_.push_back(std::move(route));
}

HttpRouter::Match HttpRouter::find(std::string_view method, const std::vector<std::string>& segments) const
{
    Match match;
    for (const Route& route : routes_)
    {
        Parts parts;
        if (!matches(route.pattern, segments, parts))
        {
            continue;
        }
        match.allowed +=
            (match.allowed.empty() ? "" : ", ") + route.method + (route.method == "GET" ? ", HEAD" : "");
        if (match.route == nullptr && serves(route, method))
        {
            match.route = &route;
            match.parts = std::move(parts);
        }
    }
    return match;
}

const std::vector<HttpRouter::Route>& HttpRouter::routes() const
{
    return routes_;
}

}  // namespace refhost
