#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

namespace refhost
{

/// Redirects what the library prints on `stdout` to the log while an object of this class lives. Each line
/// gets the time and the request or thread it belongs to; of each kind, one line in ten seconds is written.
///
/// Lines that differ only in numbers and quoted text are of one kind. std::cout is not affected: it keeps the
/// stream it had at program start. At most one object exists at a time.
///
/// Threads: created and destroyed while no other thread prints; any thread may print.
class LibraryOutput
{
public:
    /// Describes what the thread works on while an object of this class lives. The text is appended to the
    /// library's lines. Contexts of a thread nest.
    class Context
    {
    public:
        /// \param makeText  called for each line that is written; must outlive this object
        explicit Context(const std::function<std::string()>& makeText);
        ~Context();
        Context(const Context&) = delete;
        Context& operator=(const Context&) = delete;

    private:
        const std::function<std::string()>* before_;
    };

    LibraryOutput();
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    /// The kind of `line` for Log::limited(): the line without its numbers and quoted text.
    static std::string kindOf(std::string_view line);

private:
    static ssize_t take(void* self, const char* data, std::size_t size);
    void writeLine(std::string_view line) const;

    std::FILE* before_ = nullptr;
    std::FILE* stream_ = nullptr;
    std::string part_;  ///< an incomplete line; guarded by the stream's lock
};

}  // namespace refhost
