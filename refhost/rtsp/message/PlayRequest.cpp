#include "refhost/rtsp/message/PlayRequest.h"

#include <algorithm>
#include <cmath>

#include "refhost/base/Decimal.h"
#include "refhost/base/HeaderText.h"

namespace refhost
{
namespace
{

/// Parses the decimal number of both headers.
std::optional<double> parseRate(std::string_view text, bool maybeNegative)
{
    constexpr std::uint64_t max = 1000000;
    const bool negative = maybeNegative && !text.empty() && text.front() == '-';
    text.remove_prefix(negative ? 1 : 0);
    const std::size_t dot = text.find('.');
    const auto whole = parseDecimal<std::uint64_t>(text.substr(0, dot), max);
    const auto fraction =
        parseMillionths(dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1));
    if (!whole || !fraction)
    {
        return std::nullopt;
    }
    const double rate = static_cast<double>(*whole) + static_cast<double>(*fraction) / 1e6;
    return negative ? -rate : rate;
}

RtspStatus parseRateHeader(const RtspRequest& request, std::string_view name, bool maybeNegative,
                           std::optional<double>& out)
{
    const RtspRequest::Header* const header = request.find(name);
    if (header == nullptr)
    {
        return rtspOk;
    }
    out = parseRate(header->value, maybeNegative);
    return out ? rtspOk : rtspBadRequest;
}

/// "all", "predicted", "intra" or "intra/<milliseconds>". With "predicted" every frame is sent, because
/// reference frames are not distinguished from others.
RtspStatus parseFrames(std::string_view value, PlayRequest& out)
{
    const std::string_view kind = HeaderText::trim(value.substr(0, value.find('/')));
    out.keyFramesOnly = kind == "intra";
    if (kind.size() == value.size())
    {
        return out.keyFramesOnly || kind == "all" || kind == "predicted" ? rtspOk : rtspBadRequest;
    }
    constexpr std::uint64_t max = 1000000000;
    const auto distance =
        parseDecimal<std::uint64_t>(HeaderText::trim(value.substr(value.find('/') + 1)), max);
    out.keyFrameDistance = std::chrono::milliseconds(distance.value_or(0));
    return out.keyFramesOnly && distance ? rtspOk : rtspBadRequest;
}

RtspStatus parseReplay(const RtspRequest& request, PlayRequest& out)
{
    if (const RtspRequest::Header* const control = request.find("Rate-Control"))
    {
        out.noRateControl = control->value == "no";
        if (!out.noRateControl && control->value != "yes")
        {
            return rtspBadRequest;
        }
    }
    const auto cseq = parseDecimal<std::uint64_t>(request.value("CSeq"), 0xffffffff);
    out.sequence = static_cast<std::uint8_t>(cseq.value_or(0));
    const RtspRequest::Header* const frames = request.find("Frames");
    return frames == nullptr ? rtspOk : parseFrames(frames->value, out);
}

}  // namespace

RtspStatus PlayRequest::parse(const RtspRequest& request, bool replay, PlayRequest& out)
{
    PlayRequest order;
    order.replay = replay;
    RtspStatus status = parseRateHeader(request, "Scale", true, order.scale);
    const RtspRequest::Header* const range = request.find("Range");
    if (status == rtspOk && range != nullptr)
    {
        order.range.emplace();
        status = RangeHeader::parse(range->value, *order.range, order.backwards());
    }
    status = status == rtspOk ? parseRateHeader(request, "Speed", false, order.speed) : status;
    status = status == rtspOk && replay ? parseReplay(request, order) : status;
    if (status == rtspOk)
    {
        out = order;
    }
    return status;
}

void PlayRequest::appendRate(std::string& out, double rate)
{
    constexpr double max = 1e9;
    const std::int64_t thousandths = std::llround(std::clamp(std::abs(rate), 0.0, max) * 1000);
    out.append(rate < 0 && thousandths > 0 ? "-" : "");
    appendDecimal(out, static_cast<std::uint64_t>(thousandths / 1000));
    appendDecimals(out, static_cast<std::uint64_t>(thousandths % 1000), 3, 1);
}

}  // namespace refhost
