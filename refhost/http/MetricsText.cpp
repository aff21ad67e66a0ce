#include "refhost/http/MetricsText.h"

#include <fmt/format.h>

#include <chrono>

namespace refhost
{
namespace
{

void appendEscaped(std::string& out, std::string_view text, bool quotes)
{
    for (const char c : text)
    {
        if (c == '\n')
        {
            out += "\\n";
            continue;
        }
        if (c == '\\' || (quotes && c == '"'))
        {
            out += '\\';
        }
        out += c;
    }
}

}  // namespace

void MetricsText::family(std::string_view name, std::string_view type, std::string_view help)
{
    name_ = name;
    text_.append("# HELP ").append(name).append(" ");
    appendEscaped(text_, help, false);
    text_.append("\n# TYPE ").append(name).append(" ").append(type).append("\n");
}

void MetricsText::sample(Labels labels, double value)
{
    text_ += name_;
    std::string_view before = "{";
    for (const auto& [name, content] : labels)
    {
        text_.append(before).append(name).append("=\"");
        appendEscaped(text_, content, true);
        text_ += '"';
        before = ",";
    }
    text_ += labels.size() > 0 ? "}" : "";
    // Shortest text that reads back to the same number.
    text_ += fmt::format(" {}\n", value);
}

void MetricsText::single(std::string_view name, std::string_view type, std::string_view help, double value)
{
    family(name, type, help);
    sample(value);
}

void MetricsText::histogram(std::string_view name, std::string_view help,
                            const DurationHistogram::Counts& counts)
{
    constexpr double milliseconds = 1e-3;
    family(name, "histogram", help);
    name_ = std::string(name) + "_bucket";
    std::uint64_t all = 0;
    for (std::size_t i = 0; i < DurationHistogram::bounds.size(); ++i)
    {
        all += counts.buckets.at(i);
        sample({{"le", fmt::format("{}", DurationHistogram::bounds.at(i) * milliseconds)}},
               static_cast<double>(all));
    }
    all += counts.buckets.back();
    sample({{"le", "+Inf"}}, static_cast<double>(all));
    name_ = std::string(name) + "_sum";
    sample(std::chrono::duration<double>(counts.sum).count());
    name_ = std::string(name) + "_count";
    sample(static_cast<double>(all));
}

std::string MetricsText::take()
{
    return std::exchange(text_, {});
}

}  // namespace refhost
