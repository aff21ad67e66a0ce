#include "refhost/http/JsonDocument.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>

#include "refhost/base/Decimal.h"

namespace refhost
{

std::string JsonDocument::of(const nlohmann::ordered_json& document)
{
    return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string JsonDocument::time(WallTime time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch() - Duration(seconds)).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds.count())),
                       milliseconds);
}

std::optional<WallTime> JsonDocument::timeOf(const std::string& text)
{
    // Up to the year 2261, which WallTime ends in.
    constexpr std::int64_t maxSeconds = 9200000000;
    std::int64_t seconds = 0;
    const bool date = text.find('T') != std::string::npos;
    const std::size_t point = text.find('.');
    std::string whole = text.substr(0, point);
    std::string decimals = point == std::string::npos ? "" : text.substr(point + 1);
    std::string& last = point == std::string::npos ? whole : decimals;
    if (date)
    {
        if (last.empty() || last.back() != 'Z')
        {
            return std::nullopt;
        }
        last.pop_back();
        std::tm parts{};
        const char* const end = ::strptime(whole.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
        if (end == nullptr || *end != '\0')
        {
            return std::nullopt;
        }
        seconds = ::timegm(&parts);
    }
    else
    {
        seconds = parseDecimal<std::int64_t>(whole, 0, maxSeconds).value_or(-1);
    }
    const auto millionths = parseMillionths(decimals);
    if (seconds < 0 || seconds > maxSeconds || !millionths ||
        (point != std::string::npos && decimals.empty()))
    {
        return std::nullopt;
    }
    return WallTime(std::chrono::seconds(seconds) + std::chrono::microseconds(*millionths));
}

}  // namespace refhost
