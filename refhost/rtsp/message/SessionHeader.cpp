#include "refhost/rtsp/message/SessionHeader.h"

#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"

namespace refhost
{

std::string_view SessionHeader::id(std::string_view value)
{
    return HeaderText::cut(value, ';');
}

void SessionHeader::append(std::string& out, std::string_view id, std::chrono::seconds timeout)
{
    out += id;
    out += ";timeout=";
    appendDecimal(out, static_cast<std::uint64_t>(timeout.count()));
}

}  // namespace refhost
