#include "refhost/base/LibraryOutput.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr std::size_t maxLine = 2048;

thread_local const std::function<std::string()>* context = nullptr;

std::string contextText()
{
    if (context != nullptr)
    {
        return (*context)();
    }
    std::array<char, 16> name{};
    const bool known = pthread_getname_np(pthread_self(), name.data(), name.size()) == 0;
    return std::string("thread ") + (known ? name.data() : "?");
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

}  // namespace

LibraryOutput::Context::Context(const std::function<std::string()>& makeText)
    : before_(std::exchange(context, &makeText))
{
}

LibraryOutput::Context::~Context()
{
    context = before_;
}

LibraryOutput::LibraryOutput()
{
    cookie_io_functions_t functions{};
    functions.write = &LibraryOutput::take;
    stream_ = fopencookie(this, "w", functions);
    if (stream_ == nullptr)
    {
        Log::warning("the library's lines are printed directly: no memory for a stream");
        return;
    }
    // Line buffered, so that take() receives whole lines on the thread that printed them.
    std::setvbuf(stream_, nullptr, _IOLBF, BUFSIZ);
    std::fflush(stdout);
    before_ = std::exchange(stdout, stream_);
}

LibraryOutput::~LibraryOutput()
{
    if (stream_ != nullptr)
    {
        stdout = before_;
        std::fclose(stream_);
    }
}

std::string LibraryOutput::kindOf(std::string_view line)
{
    constexpr std::size_t maxKind = 120;
    std::string kind;
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i)
    {
        const char c = line[i];
        const bool sign = c == '-' && i + 1 < line.size() && isDigit(line[i + 1]);
        if (c == '"')
        {
            quoted = !quoted;
            kind += quoted ? "\"…" : "\"";
        }
        else if (!quoted && !sign && !isDigit(c))
        {
            kind += c;
        }
        if (kind.size() >= maxKind)
        {
            break;
        }
    }
    return kind;
}

ssize_t LibraryOutput::take(void* self, const char* data, std::size_t size)
{
    auto* const output = static_cast<LibraryOutput*>(self);
    std::string_view rest(data, size);
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n'))
    {
        output->part_.append(rest.substr(0, std::min(end, maxLine)));
        output->writeLine(output->part_);
        output->part_.clear();
        rest.remove_prefix(end + 1);
    }
    if (output->part_.size() < maxLine)
    {
        output->part_.append(rest.substr(0, maxLine - output->part_.size()));
    }
    return static_cast<ssize_t>(size);
}

void LibraryOutput::writeLine(std::string_view line) const
{
    const bool misuse = line.rfind("SafePointer Report:", 0) == 0;
    const std::string kind = "library: " + Log::safe(kindOf(line));
    Log::limited(misuse ? Log::Level::error : Log::Level::info, kind, "library: {} ({})",
                 Log::safe(line, 500), Log::safe(contextText(), 300));
}

}  // namespace refhost
