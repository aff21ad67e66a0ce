#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

namespace refhost
{

/// Brings what the library prints on `stdout` into the log, while an object of this class lives: each line
/// with the time, the request or thread that it belongs to, and at most once in ten seconds for each kind of
/// line.
///
/// Lines are of one kind when they differ in numbers and quoted text only. std::cout is not concerned: it
/// keeps the stream that it had at the program's start. One at a time; made and destroyed while no other
/// thread prints. Lines come in from any thread.
class LibraryOutput
{
public:
    /// What the thread is about while an object of this class lives: `text` stands behind the library's
    /// lines.
    class Context
    {
    public:
        /// \param makeText  called for a line that is written; must stay valid as long as this object
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

    /// The kind of `line`, as Log::limited() takes it: the line without its numbers and quoted text.
    static std::string kindOf(std::string_view line);

private:
    static ssize_t take(void* self, const char* data, std::size_t size);
    void writeLine(std::string_view line) const;

    std::FILE* before_ = nullptr;
    std::FILE* stream_ = nullptr;
    std::string part_;  ///< of a line whose end has not come yet; under the stream's lock
};

}  // namespace refhost
