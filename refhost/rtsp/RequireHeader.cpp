#include "refhost/rtsp/RequireHeader.h"

#include <string_view>

#include "refhost/rtsp/RtspText.h"

namespace refhost
{

RequireHeader RequireHeader::of(const RtspRequest& request)
{
    RequireHeader out;
    for (const char* const name : {"Require", "Proxy-Require"})
    {
        for (const RtspRequest::Header* header = request.find(name); header != nullptr;
             header = request.find(name, header))
        {
            std::string_view list = header->value;
            while (!list.empty())
            {
                const std::string_view tag = RtspText::cut(list, ',');
                if (tag == "www.onvif.org/ver20/backchannel")
                {
                    out.backchannel = true;
                }
                else if (tag == "onvif-replay")
                {
                    out.replay = true;
                }
                else if (!tag.empty())
                {
                    out.unsupported.append(out.unsupported.empty() ? "" : ", ").append(tag);
                }
            }
        }
    }
    for (char& c : out.unsupported)
    {
        c = c == '\r' || c == '\n' ? ' ' : c;
    }
    return out;
}

}  // namespace refhost
