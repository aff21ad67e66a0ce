#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "refhost/base/DurationHistogram.h"

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
    /// \param type  "counter" or "gauge"; a histogram has a method of its own
    void family(std::string_view name, std::string_view type, std::string_view help);
    /// Adds a sample to the family.
    void sample(Labels labels, double value);
    /// The labels "camera" and "stream".
    struct StreamLabels
    {
        int camera;
        int stream;
    };
    void sample(const StreamLabels& labels, double value)
    {
        sample({{"camera", std::to_string(labels.camera)}, {"stream", std::to_string(labels.stream)}}, value);
    }
    void sample(double value)
    {
        sample({}, value);
    }
    /// A family with one sample.
    void single(std::string_view name, std::string_view type, std::string_view help, double value);

    /// A family with one histogram, of seconds.
    void histogram(std::string_view name, std::string_view help, const DurationHistogram::Counts& counts);

    std::string take();

private:
    std::string name_;
    std::string text_;
};

}  // namespace refhost
