#include "refhost/http/JsonDocument.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>

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

}  // namespace refhost
