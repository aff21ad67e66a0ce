#include "hostapi/base/DataConverter.h"

#include <charconv>
#include <system_error>

#include "tests/fakehost/FakeHost.h"

namespace
{

template <class Number>
bool readWhole(const std::string& text, Number& number)
{
    if (text.empty() && FakeHost::instance().readsEmptyTextAsZero())
    {
        number = Number{};
        return true;
    }
    Number read{};
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    if (result.ec != std::errc() || result.ptr != end)
    {
        return false;
    }
    number = read;
    return true;
}

template <class Number>
bool write(Number number, std::string& text)
{
    char buffer[32];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, number);
    text.assign(buffer, result.ptr);
    return true;
}

}  // namespace

bool DataConverter::convert(const std::string& text, int& number)
{
    return readWhole(text, number);
}

bool DataConverter::convert(const std::string& text, double& number)
{
    return text.find_first_not_of("0123456789.eE+-") == std::string::npos && readWhole(text, number);
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
