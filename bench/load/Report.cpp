#include "bench/load/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace rtspload
{

double Latencies::percentile(double percent)
{
    if (values_.empty())
    {
        return 0;
    }
    const auto rank =
        static_cast<std::size_t>(std::lround(percent / 100 * static_cast<double>(values_.size() - 1)));
    const auto place = values_.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values_.begin(), place, values_.end());
    return static_cast<double>(*place) / 1e6;
}

void Report::add(const std::string& name, const std::string& value)
{
    lines_.push_back({name, value, true});
}

void Report::add(const std::string& name, std::int64_t value)
{
    lines_.push_back({name, std::to_string(value), false});
}

void Report::add(const std::string& name, double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    lines_.push_back({name, text, false});
}

void Report::add(const std::string& name, Latencies& latencies)
{
    if (latencies.empty())
    {
        return;
    }
    for (const int percent : {50, 95, 99})
    {
        add(name + "_p" + std::to_string(percent) + "_ms", latencies.percentile(percent), 3);
    }
}

void Report::printText() const
{
    for (const Line& line : lines_)
    {
        std::printf("%-32s %s\n", line.name.c_str(), line.value.c_str());
    }
}

void Report::printJson() const
{
    const char* separator = "{";
    for (const Line& line : lines_)
    {
        const char* quote = line.quoted ? "\"" : "";
        std::printf("%s\"%s\": %s%s%s", separator, line.name.c_str(), quote, line.value.c_str(), quote);
        separator = ", ";
    }
    std::printf("}\n");
}

}  // namespace rtspload
