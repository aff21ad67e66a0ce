#include "refhost/PasswordPrompt.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>

namespace refhost
{
namespace
{

volatile std::sig_atomic_t caught = 0;

constexpr std::array<int, 5> signals{SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGTSTP};

// Ends a read() by the signals that end or stop the program, and passes them on once the terminal is as before.
class HeldSignals
{
public:
    HeldSignals()
    {
        caught = 0;
        struct sigaction action = {};
        action.sa_handler = [](int signal) { caught = signal; };
        for (std::size_t i = 0; i < signals.size(); ++i)
        {
            sigaction(signals.at(i), &action, &before_.at(i));
        }
    }
    ~HeldSignals()
    {
        for (std::size_t i = 0; i < signals.size(); ++i)
        {
            sigaction(signals.at(i), &before_.at(i), nullptr);
        }
        if (caught != 0)
        {
            std::raise(caught);
        }
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    std::array<struct sigaction, signals.size()> before_{};
};

class SilentTerminal
{
public:
    explicit SilentTerminal(int descriptor) : descriptor_(descriptor)
    {
        if (tcgetattr(descriptor_, &before_) == 0)
        {
            termios silent = before_;
            silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
            changed_ = tcsetattr(descriptor_, TCSAFLUSH, &silent) == 0;
        }
    }
    ~SilentTerminal()
    {
        if (changed_)
        {
            tcsetattr(descriptor_, TCSAFLUSH, &before_);
        }
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    const int descriptor_;
    termios before_{};
    bool changed_ = false;
};

void print(int descriptor, std::string_view text)
{
    // A question that cannot be asked is no reason not to take the answer.
    [[maybe_unused]] const ssize_t count = ::write(descriptor, text.data(), text.size());
}

}  // namespace

PasswordPrompt::PasswordPrompt(int input, int output) : input_(input), output_(output) {}

bool PasswordPrompt::isTerminal() const
{
    return isatty(input_) == 1;
}

bool PasswordPrompt::read(const char* question, std::string& line, bool echo)
{
    if (!isTerminal())
    {
        return readLine(line);
    }
    const HeldSignals held;
    // Before the question: what is typed earlier is dropped, and what is typed later is not echoed.
    std::optional<SilentTerminal> silent;
    if (!echo)
    {
        silent.emplace(input_);
    }
    print(output_, question);
    const bool good = readLine(line);
    if (!echo)
    {
        print(output_, "\n");
    }
    return good;
}

bool PasswordPrompt::readLine(std::string& line)
{
    line.clear();
    char c = 0;
    ssize_t count = ::read(input_, &c, 1);
    while (count == 1 && c != '\n' && line.size() <= maxLine)
    {
        line += c;
        count = ::read(input_, &c, 1);
    }
    if (!line.empty() && line.back() == '\r')
    {
        line.pop_back();
    }
    const bool controls =
        std::any_of(line.begin(), line.end(),
                    [](char each) { return static_cast<unsigned char>(each) < 0x20 || each == 0x7f; });
    return count >= 0 && line.size() <= maxLine && !controls && (count == 1 || !line.empty());
}

}  // namespace refhost
