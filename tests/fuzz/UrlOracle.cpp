#include "tests/fuzz/UrlOracle.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace
{

const int refused = -8;

// Everything after the first occurrence of the key, or false.
bool behind(const std::string& url, const std::string& key, std::string& rest)
{
    for (std::size_t i = 0; i + key.size() <= url.size(); ++i)
    {
        if (std::string(url, i, key.size()) == key)
        {
            rest.assign(url, i + key.size(), std::string::npos);
            return true;
        }
    }
    return false;
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> fields(1);
    for (char c : text)
    {
        if (c == separator)
        {
            fields.emplace_back();
        }
        else
        {
            fields.back() += c;
        }
    }
    return fields;
}

bool isDigits(const std::string& text)
{
    for (char c : text)
    {
        if (c < '0' || c > '9')
        {
            return false;
        }
    }
    return !text.empty();
}

// What the host's conversion accepts: an optional '-', digits, the range of 32 bits.
bool number(const std::string& text, int& out)
{
    const bool negative = !text.empty() && text[0] == '-';
    const std::string digits = negative ? text.substr(1) : text;
    if (!isDigits(digits))
    {
        return false;
    }
    const std::size_t significant = digits.find_first_not_of('0');
    const std::string plain = significant == std::string::npos ? "0" : digits.substr(significant);
    const std::string limit = negative ? "2147483648" : "2147483647";
    if (plain.size() > limit.size() || (plain.size() == limit.size() && plain > limit))
    {
        return false;
    }
    const long long value = std::strtoll(plain.c_str(), nullptr, 10);
    out = static_cast<int>(negative ? -value : value);
    return true;
}

// The host's conversion refuses digits beyond the range of double, and the time stays 0.
double seconds(const std::string& digits)
{
    const double value = std::strtod(digits.c_str(), nullptr);
    return std::isinf(value) ? 0.0 : value;
}

}  // namespace

UrlOracle::Verdict UrlOracle::live(const std::string& url, Verdict before)
{
    before.result = refused;
    std::string rest;
    if (!behind(url, "orv/live/", rest))
    {
        return before;
    }
    std::vector<std::string> fields = split(rest, '/');
    int camera = 0;
    int stream = 0;
    // A number contains no separator, so more than two fields are not a camera and a stream.
    if (fields.size() != 2 || !number(fields[0], camera) || !number(fields[1], stream))
    {
        return before;
    }
    return {0, camera, stream, before.begin, before.end};
}

UrlOracle::Verdict UrlOracle::playback(const std::string& url, Verdict before)
{
    before.result = refused;
    std::string rest;
    if (!behind(url, "orv/playback/", rest))
    {
        return before;
    }
    const std::vector<std::string> fields = split(rest, '_');
    if (fields.size() < 2 || !number(fields[0], before.camera))
    {
        return before;
    }
    if (fields.size() != 3 || !isDigits(fields[1]) || !isDigits(fields[2]))
    {
        return before;
    }
    return {0, before.camera, before.stream, seconds(fields[1]), seconds(fields[2])};
}

double UrlOracle::rendered(double time)
{
    if (std::isnan(time))
    {
        return 0;
    }
    return std::trunc(std::min(std::max(time, 0.0), 4294967295.0));
}
