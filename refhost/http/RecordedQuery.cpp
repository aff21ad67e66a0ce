#include "refhost/http/RecordedQuery.h"

#include <charconv>
#include <chrono>
#include <cmath>

#include "refhost/export/InstantText.h"

namespace refhost
{
namespace
{

/// A decimal number; nothing for other texts.
std::optional<double> numberOf(std::string_view text)
{
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional<double>(number)
                                                                    : std::nullopt;
}

}  // namespace

bool RecordedQuery::wantsAudio(const HttpTarget& target)
{
    return target.parameter("audio").value_or("1") != "0";
}

std::string RecordedQuery::read(const HttpTarget& target, RecordedSocket::Options& out)
{
    RecordedFragments::Request& request = out.request;
    const auto start = InstantText::parse(target.parameter("start").value_or(""));
    if (!start)
    {
        return "The parameter start must be seconds since 1970, or a time such as 2026-01-31T12:00:00.5Z.";
    }
    request.start = *start;
    const auto speed = numberOf(target.parameter("speed").value_or("1"));
    if (!speed || !(std::abs(*speed) >= minSpeed && std::abs(*speed) <= maxSpeed))
    {
        return "The parameter speed must be 0.25 to 16, or -0.25 to -16.";
    }
    request.backwards = *speed < 0;
    request.keyFramesOnly = request.backwards || *speed > maxSpeedOfAllFrames;
    request.keyDistance = durationOf(std::chrono::duration<double>(std::abs(*speed) / maxKeyFrameRate));
    request.audio = wantsAudio(target);
    if (const auto text = target.parameter("end"))
    {
        request.end = InstantText::parse(*text);
        if (!request.end || (request.backwards ? *request.end >= *start : *request.end <= *start))
        {
            return "The parameter end must be a time behind start; in front of it when the speed is "
                   "negative.";
        }
    }
    if (const auto text = target.parameter("ahead"))
    {
        const auto ahead = numberOf(*text);
        if (!ahead || !(*ahead >= 0 && *ahead <= maxFirstAhead))
        {
            return "The parameter ahead must be 0 to 3600 seconds.";
        }
        out.ahead = durationOf(std::chrono::duration<double>(*ahead));
    }
    return "";
}

std::optional<Duration> RecordedQuery::place(std::string_view line)
{
    const auto seconds = numberOf(line);
    if (!seconds || !(*seconds >= 0 && *seconds <= maxPlace))
    {
        return std::nullopt;
    }
    return durationOf(std::chrono::duration<double>(*seconds));
}

}  // namespace refhost
