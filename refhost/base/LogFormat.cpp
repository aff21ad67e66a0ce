#include "refhost/base/LogFormat.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "refhost/base/Hex.h"
#include "refhost/base/JsonText.h"

namespace refhost
{
namespace
{

std::atomic<LogFormat::Kind> currentKind{LogFormat::Kind::text};

// The event that this thread is writing: its line passes through the logger as text.
struct Event
{
    std::string_view name;
    const std::vector<LogFormat::Field>* fields;
};
thread_local const Event* currentEvent = nullptr;

void appendQuoted(std::string& out, std::string_view text)
{
    out += '"';
    for (const char c : text)
    {
        if (c < 0x20 || c > 0x7e || c == '"' || c == '\\')
        {
            out += "\\x";
            appendHex8(out, static_cast<std::uint8_t>(c));
        }
        else
        {
            out += c;
        }
    }
    out += '"';
}

void appendMember(std::string& out, const LogFormat::Field& field)
{
    out.append(",\"").append(field.name).append("\":");
    if (field.kind == LogFormat::Field::Kind::number)
    {
        out += field.value;
    }
    else
    {
        JsonText::append(out, field.value);
    }
}

}  // namespace

void LogFormat::set(Kind kind)
{
    currentKind = kind;
}

LogFormat::Kind LogFormat::kind()
{
    return currentKind;
}

void LogFormat::write(Log::Level level, std::string_view event, const std::vector<Field>& fields)
{
    if (!Log::enabled(level))
    {
        return;
    }
    std::string line = "audit: ";
    line += event;
    for (const Field& field : fields)
    {
        line.append(" ").append(field.name).append("=");
        if (field.kind == Field::Kind::text)
        {
            appendQuoted(line, field.value);
        }
        else
        {
            line += field.value.empty() ? "-" : field.value;
        }
    }
    const Event present{event, &fields};
    currentEvent = &present;
    Log::write(level, line);
    currentEvent = nullptr;
}

std::string LogFormat::json(std::string_view time, std::string_view level, std::size_t thread,
                            std::string_view message)
{
    std::string out = fmt::format(R"({{"time":"{}","level":"{}","thread":{})", time, level, thread);
    if (currentEvent != nullptr)
    {
        out += ",\"event\":";
        JsonText::append(out, currentEvent->name);
        for (const Field& field : *currentEvent->fields)
        {
            appendMember(out, field);
        }
    }
    else
    {
        out += ",\"message\":";
        JsonText::append(out, message);
    }
    return out + "}\n";
}

std::string_view LogFormat::journalPrefix(Log::Level level)
{
    static const bool journal = []
    {
        const char* const stream = std::getenv("JOURNAL_STREAM");
        return stream != nullptr && isJournal(STDERR_FILENO, stream);
    }();
    if (!journal)
    {
        return {};
    }
    switch (level)
    {
        case Log::Level::error:
            return "<3>";
        case Log::Level::warning:
            return "<4>";
        case Log::Level::info:
            return "<6>";
        default:
            return "<7>";
    }
}

bool LogFormat::isJournal(int descriptor, std::string_view journalStream)
{
    struct stat status
    {
    };
    return fstat(descriptor, &status) == 0 &&
           journalStream == fmt::format("{}:{}", status.st_dev, status.st_ino);
}

}  // namespace refhost
