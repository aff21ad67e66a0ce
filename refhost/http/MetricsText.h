#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace refhost
{

/// Writes metrics in the text format of Prometheus, version 0.0.4: the samples of a family behind its help and type.
/// Threads: one at a time.
class MetricsText
{
public:
    using Labels = std::initializer_list<std::pair<std::string_view, std::string>>;

    static constexpr std::string_view contentType = "text/plain; version=0.0.4; charset=utf-8";

    /// Starts a family.
    /// \param name  with its unit; a counter's ends with "_total"
    /// \param type  "counter" or "gauge"
    void family(std::string_view name, std::string_view type, std::string_view help);
    /// Adds a sample to the family.
    void sample(Labels labels, double value);
    void sample(double value)
    {
        sample({}, value);
    }
    /// A family with one sample.
    void single(std::string_view name, std::string_view type, std::string_view help, double value);

    std::string take();

private:
    std::string name_;
    std::string text_;
};

}  // namespace refhost
