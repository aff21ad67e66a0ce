#pragma once
// Tested by tests/refhost/CommandLine_test.cpp.

#include <string>

namespace refhost
{

/// Asks for lines at a terminal, or reads them from a pipe. Threads: one.
class PasswordPrompt
{
public:
    static constexpr std::size_t maxLine = 1024;

    /// \param input   descriptor that is read
    /// \param output  descriptor of the questions, which only a terminal gets
    PasswordPrompt(int input, int output);

    bool isTerminal() const;

    /// \param echo  whether the terminal repeats what is typed. It does again however this ends, by signals too
    /// \param[out] line  without its end
    /// \returns false at the end of the input, for a line that is too long or holds control characters, and
    ///          after a signal
    bool read(const char* question, std::string& line, bool echo);

private:
    bool readLine(std::string& line);

    const int input_;
    const int output_;
};

}  // namespace refhost
