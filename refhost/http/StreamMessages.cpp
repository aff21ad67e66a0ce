#include "refhost/http/StreamMessages.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "refhost/fragments/FragmentWriter.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/net/websocket/WebSocketFrames.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

Json describe(const MediaFormat& format, std::uint32_t track)
{
    Json text{
        {"track", track}, {"timescale", FragmentWriter::timescale}, {"codec", infoOf(format.codec).name}};
    if (isVideo(format.codec))
    {
        text["width"] = format.width;
        text["height"] = format.height;
    }
    return text;
}

}  // namespace

void StreamMessages::addDescription(const MediaFormat* video, const MediaFormat* audio, std::string& out)
{
    Json text{{"type", "description"}, {"mime", FragmentWriter::mimeType(video, audio)}};
    text["video"] = video == nullptr ? Json() : describe(*video, FragmentWriter::videoTrack);
    text["audio"] = audio == nullptr ? Json() : describe(*audio, FragmentWriter::audioTrack);
    add(text, out);
    add(FragmentWriter::init(video, audio), out);
}

void StreamMessages::add(const Json& message, std::string& out)
{
    WebSocketFrames::append(JsonDocument::of(message), out, WebSocketFrames::Kind::text);
}

void StreamMessages::add(const std::vector<std::uint8_t>& fragment, std::string& out)
{
    WebSocketFrames::append({reinterpret_cast<const char*>(fragment.data()), fragment.size()}, out);
}

}  // namespace refhost
