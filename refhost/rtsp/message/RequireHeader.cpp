#include "refhost/rtsp/message/RequireHeader.h"

#include <string_view>

#include "refhost/base/HeaderText.h"

namespace refhost
{
namespace
{

constexpr std::string_view replayTag = "onvif-replay";

void append(std::string& list, std::string_view tag)
{
    list.append(list.empty() ? "" : ", ").append(tag);
}

}  // namespace

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
                const std::string_view tag = HeaderText::cut(list, ',');
                if (tag == "www.onvif.org/ver20/backchannel")
                {
                    out.backchannel = true;
                }
                else if (tag == replayTag)
                {
                    out.replay = true;
                }
                else if (!tag.empty())
                {
                    append(out.unsupported, tag);
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

void RequireHeader::refuseReplay()
{
    replay = false;
    append(unsupported, replayTag);
}

}  // namespace refhost
