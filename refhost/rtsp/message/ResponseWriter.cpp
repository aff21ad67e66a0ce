#include "refhost/rtsp/message/ResponseWriter.h"

#include <array>

#include "refhost/base/Decimal.h"
#include "refhost/rtsp/message/StatusMap.h"

namespace refhost
{
namespace
{

void appendTwoDigits(std::string& out, int number)
{
    out += static_cast<char>('0' + number / 10);
    out += static_cast<char>('0' + number % 10);
}

}  // namespace

void ResponseWriter::start(RtspStatus status, std::string_view cseq)
{
    refreshDate();
    text_.clear();
    text_ += "RTSP/1.0 ";
    appendDecimal(text_, static_cast<std::uint64_t>(status));
    text_ += ' ';
    text_ += StatusMap::reason(status);
    text_ += "\r\n";
    if (!cseq.empty())
    {
        header("CSeq", cseq);
    }
    text_ += date_;
}

void ResponseWriter::header(std::string_view name, std::string_view value)
{
    startHeader(name);
    text_ += value;
    endHeader();
}

void ResponseWriter::startHeader(std::string_view name)
{
    text_ += name;
    text_ += ": ";
}

std::string& ResponseWriter::text()
{
    return text_;
}

void ResponseWriter::endHeader()
{
    text_ += "\r\n";
}

std::string_view ResponseWriter::finish()
{
    text_ += "\r\n";
    return text_;
}

std::string_view ResponseWriter::finish(std::string_view contentType, std::string_view body)
{
    header("Content-Type", contentType);
    startHeader("Content-Length");
    appendDecimal(text_, body.size());
    text_ += "\r\n\r\n";
    text_ += body;
    return text_;
}

/// Not strftime(), whose names of days and months depend on the locale.
void ResponseWriter::refreshDate()
{
    const std::time_t now = std::time(nullptr);
    if (now == dateTime_)
    {
        return;
    }
    constexpr std::array<std::string_view, 7> days{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array<std::string_view, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::tm calendar{};
    gmtime_r(&now, &calendar);
    dateTime_ = now;
    date_ = "Date: ";
    date_ += days[static_cast<std::size_t>(calendar.tm_wday)];
    date_ += ", ";
    appendTwoDigits(date_, calendar.tm_mday);
    date_ += ' ';
    date_ += months[static_cast<std::size_t>(calendar.tm_mon)];
    date_ += ' ';
    appendDecimal(date_, static_cast<std::uint64_t>(calendar.tm_year) + 1900);
    date_ += ' ';
    appendTwoDigits(date_, calendar.tm_hour);
    date_ += ':';
    appendTwoDigits(date_, calendar.tm_min);
    date_ += ':';
    appendTwoDigits(date_, calendar.tm_sec);
    date_ += " GMT\r\nServer: ovrtspd\r\n";
}

}  // namespace refhost
