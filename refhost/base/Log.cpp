#include "refhost/base/Log.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <mutex>
#include <utility>

#include "refhost/base/CredentialMask.h"
#include "refhost/base/Hex.h"
#include "refhost/base/LogFormat.h"
#include "refhost/base/LogLimiter.h"
#include "refhost/base/LogWriter.h"

namespace refhost
{
namespace
{

constexpr std::array<std::string_view, 6> levelNames{"trace", "debug", "info", "warning", "error", "off"};
spdlog::level::level_enum toSpdlog(Log::Level level)
{
    switch (level)
    {
        case Log::Level::trace:
            return spdlog::level::trace;
        case Log::Level::debug:
            return spdlog::level::debug;
        case Log::Level::info:
            return spdlog::level::info;
        case Log::Level::warning:
            return spdlog::level::warn;
        case Log::Level::error:
            return spdlog::level::err;
        case Log::Level::off:
            break;
    }
    return spdlog::level::off;
}

Log::Level fromSpdlog(spdlog::level::level_enum level)
{
    switch (level)
    {
        case spdlog::level::trace:
            return Log::Level::trace;
        case spdlog::level::debug:
            return Log::Level::debug;
        case spdlog::level::info:
            return Log::Level::info;
        case spdlog::level::warn:
            return Log::Level::warning;
        default:
            return Log::Level::error;
    }
}

// Writes to standard error, directly or by a LogWriter.
class ErrorSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    /// Takes effect with the next line; null: writes directly.
    void use(std::shared_ptr<LogWriter> writer)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        writer_.swap(writer);
    }

    /// Formats a line like the log's others, for the writer's report of lost lines.
    std::string lineOf(Log::Level level, std::string_view text)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return formatted(spdlog::details::log_msg("ovrtspd", toSpdlog(level),
                                                  spdlog::string_view_t(text.data(), text.size())));
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        std::string line = formatted(message);
        if (writer_)
        {
            writer_->write(std::move(line));
            return;
        }
        std::string_view rest(line);
        while (!rest.empty())
        {
            const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
            if (written < 0 && errno != EINTR)
            {
                return;
            }
            rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
        }
    }

    void flush_() override {}

private:
    /// The line with its newline, and with the journal's prefix.
    std::string formatted(const spdlog::details::log_msg& message)
    {
        const Log::Level level = fromSpdlog(message.level);
        std::string line(LogFormat::journalPrefix(level));
        spdlog::memory_buf_t text;
        if (LogFormat::kind() == LogFormat::Kind::text)
        {
            formatter_->format(message, text);
            return line.append(text.data(), text.size());
        }
        time_.format(message, text);
        return line +=
               LogFormat::json({text.data(), text.size()}, levelNames.at(static_cast<std::size_t>(level)),
                               message.thread_id, {message.payload.data(), message.payload.size()});
    }

    std::shared_ptr<LogWriter> writer_;
    spdlog::pattern_formatter time_{"%Y-%m-%dT%H:%M:%S.%e%z", spdlog::pattern_time_type::local, ""};
};

// Never destroyed, as the logger.
const std::shared_ptr<ErrorSink>& errorSink()
{
    static const auto* const sink = new std::shared_ptr<ErrorSink>(std::make_shared<ErrorSink>());
    return *sink;
}

// Never destroyed: threads and static destructors may log until the end of the process.
spdlog::logger& logger()
{
    static spdlog::logger* const instance = []
    {
        auto* made = new spdlog::logger("ovrtspd", errorSink());
        made->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %-7l [%t] %v");
        return made;
    }();
    return *instance;
}

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

void appendEscaped(std::string& out, char c)
{
    out += "\\x";
    appendHex8(out, static_cast<std::uint8_t>(c));
}

// Never destroyed, as the logger.
LogLimiter& limiter()
{
    static auto* const instance = new LogLimiter(&Log::write);
    return *instance;
}

}  // namespace

Log::Background::Background()
{
    const auto lost = [](std::size_t count)
    {
        return errorSink()->lineOf(Level::warning,
                                   fmt::format("{} lines of the log were lost: its output stalled", count));
    };
    try
    {
        errorSink()->use(std::make_shared<LogWriter>(STDERR_FILENO, lost));
    }
    catch (const std::system_error& error)
    {
        Log::warning("the log is written without a thread of its own: {}", error.what());
    }
}

Log::Background::~Background()
{
    limiter().report(LogLimiter::Clock::time_point::max());
    errorSink()->use(nullptr);
}

void Log::setLevel(Level level)
{
    logger().set_level(toSpdlog(level));
}

std::optional<Log::Level> Log::levelNamed(std::string_view name)
{
    const auto* const found = std::find(levelNames.begin(), levelNames.end(), name);
    if (found == levelNames.end())
    {
        return std::nullopt;
    }
    return static_cast<Level>(found - levelNames.begin());
}

bool Log::enabled(Level level)
{
    return level != Level::off && logger().should_log(toSpdlog(level));
}

void Log::write(Level level, std::string_view text)
{
    if (!enabled(level))
    {
        return;
    }
    // Here, where every line passes, so that no caller can forget it.
    const std::string message = mask(text);
    if (std::none_of(message.begin(), message.end(), isControl))
    {
        logger().log(toSpdlog(level), spdlog::string_view_t(message.data(), message.size()));
        return;
    }
    std::string oneLine;
    for (const char c : message)
    {
        if (isControl(c))
        {
            appendEscaped(oneLine, c);
        }
        else
        {
            oneLine += c;
        }
    }
    logger().log(toSpdlog(level), oneLine);
}

std::string Log::safe(std::string_view text, std::size_t maxBytes)
{
    // Masked before the cut to `maxBytes`, which could remove the '@' that marks a password. A huge text is
    // cut to maxExamined first, to bound the cost.
    constexpr std::size_t maxExamined = 2048;
    const std::string masked = mask(CredentialMask::cut(text, std::max(maxExamined, maxBytes)));
    std::string out;
    for (const char c : masked)
    {
        if (out.size() >= maxBytes)
        {
            return out + "…";
        }
        if (isControl(c) || static_cast<unsigned char>(c) > 126)
        {
            appendEscaped(out, c);
        }
        else
        {
            out += c;
        }
    }
    return out;
}

std::string Log::mask(std::string_view text)
{
    return CredentialMask::mask(text);
}

std::string Log::maskUrl(std::string_view url)
{
    return CredentialMask::maskUrl(url);
}

std::string_view Log::userInfo(std::string_view url)
{
    return CredentialMask::userInfo(url);
}

void Log::hide(std::string_view secret)
{
    CredentialMask::hide(secret);
}

void Log::print(Level level, fmt::string_view format, fmt::format_args args)
{
    if (enabled(level))
    {
        write(level, formatted(format, args));
    }
}

bool Log::admitted(Level level, std::string_view kind)
{
    return enabled(level) && limiter().admit(level, kind, LogLimiter::Clock::now());
}

void Log::reportLimited()
{
    limiter().report(LogLimiter::Clock::now());
}

std::string Log::formatted(fmt::string_view format, fmt::format_args args)
{
    // In C++17 formats are checked at run time only; a faulty one must not end the program.
    try
    {
        return fmt::vformat(format, args);
    }
    catch (const fmt::format_error&)
    {
        return std::string(format.data(), format.size());
    }
}

}  // namespace refhost
