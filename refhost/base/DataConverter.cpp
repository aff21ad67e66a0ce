#include "hostapi/base/DataConverter.h"

#include <array>
#include <charconv>
#include <system_error>

#include "refhost/base/Decimal.h"

namespace
{

bool readWhole(const std::string& text, double& number)
{
    const char* const end = text.data() + text.size();
    double read = 0;
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    if (result.ec != std::errc{} || result.ptr != end)
    {
        return false;
    }
    number = read;
    return true;
}

template <class Number>
bool write(Number number, std::string& text)
{
    std::array<char, 32> buffer;  // the longest double has 24 characters, the longest integer 20
    const std::to_chars_result result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    text.assign(buffer.data(), result.ptr);
    return true;
}

}  // namespace

bool DataConverter::convert(const std::string& text, int& number)
{
    const auto read = refhost::parseDecimal<int>(text);
    number = read.value_or(number);
    return read.has_value();
}

bool DataConverter::convert(const std::string& text, double& number)
{
    // std::from_chars also accepts words such as "inf"; a number has no letter except the exponent's.
    if (text.find_first_not_of("0123456789.eE+-") != std::string::npos)
    {
        return false;
    }
    return readWhole(text, number);
}

bool DataConverter::convert(const int& number, std::string& text)
{
    return write(number, text);
}

bool DataConverter::convert(const unsigned long& number, std::string& text)
{
    return write(number, text);
}

bool DataConverter::convert(const double& number, std::string& text)
{
    return write(number, text);
}
