#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace rtspload
{

/// Latencies of one kind.
class Latencies
{
public:
    void add(std::int64_t nanoseconds)
    {
        values_.push_back(nanoseconds);
    }
    bool empty() const
    {
        return values_.empty();
    }
    /// \param percent  0 to 100
    /// \returns milliseconds; 0 when there is no value
    double percentile(double percent);

private:
    std::vector<std::int64_t> values_;
};

/// Named results in the order in which they were added, printed as text or as one JSON object.
class Report
{
public:
    void add(const std::string& name, const std::string& value);
    void add(const std::string& name, std::int64_t value);
    void add(const std::string& name, double value, int decimals);
    /// 50th, 95th and 99th percentile, as `name`_p50_ms and so on.
    void add(const std::string& name, Latencies& latencies);

    void printText() const;
    void printJson() const;

private:
    struct Line
    {
        std::string name;
        std::string value;
        bool quoted;
    };
    std::vector<Line> lines_;
};

}  // namespace rtspload
