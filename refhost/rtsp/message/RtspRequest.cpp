#include "refhost/rtsp/message/RtspRequest.h"

#include "refhost/base/IgnoreCase.h"

namespace refhost
{

const RtspRequest::Header* RtspRequest::find(std::string_view name, const Header* previous) const
{
    const Header* const end = headers.data() + headers.size();
    for (const Header* header = previous == nullptr ? headers.data() : previous + 1; header < end; ++header)
    {
        if (equalsIgnoringCase(header->name, name))
        {
            return header;
        }
    }
    return nullptr;
}

std::string_view RtspRequest::value(std::string_view name) const
{
    const Header* const header = find(name);
    return header == nullptr ? std::string_view() : header->value;
}

void RtspRequest::clear()
{
    method = uri = version = body = {};
    headers.clear();
}

}  // namespace refhost
