#include "refhost/CommandLine.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::Not;

struct Outcome
{
    int exitCode;
    std::string out;
    std::string err;
};

// A temporary file of this test.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string& text)
    {
        const int descriptor = mkstemp(path_.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        std::ofstream(path_) << text;
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        std::remove(path_.c_str());
    }

    const std::string& path() const
    {
        return path_;
    }

    std::string text() const
    {
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string path_ = testing::TempDir() + "ovrtspd-XXXXXX";
};

class Socket
{
public:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket()
    {
        close(descriptor_);
    }

    int get() const
    {
        return descriptor_;
    }

private:
    int descriptor_;
};

// Runs the program with arguments in shell syntax. It ends by itself: none of these starts a server.
Outcome run(const std::string& arguments, const std::string& input = "/dev/null")
{
    const TemporaryFile err("");
    const std::string command =
        "timeout 20 '" OV_PROGRAM "' " + arguments + " 2>'" + err.path() + "' <'" + input + "'";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string out;
    std::array<char, 4096> buffer{};
    for (std::size_t got = 0; (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    {
        out.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out, err.text()};
}

// The same with a line in a pipe.
Outcome runWith(const std::string& line, const std::string& arguments)
{
    const TemporaryFile input(line);
    return run(arguments, input.path());
}

std::string valueOf(const Outcome& outcome)
{
    const std::string start = "password-hash = \"";
    EXPECT_EQ(outcome.out.rfind(start, 0), 0U) << outcome.out;
    return outcome.out.substr(std::min(start.size(), outcome.out.size()));
}

TEST(CommandLine, HashedPasswordIsAConfigurationsPasswordHash)
{
    const Outcome hashed = runWith("p@ss:w?rd\n", "--hash-password admin");
    EXPECT_EQ(hashed.exitCode, exitDone) << hashed.err;
    EXPECT_EQ(hashed.err, "");
    EXPECT_THAT(hashed.out, Not(HasSubstr("p@ss")));
    EXPECT_THAT(hashed.out, HasSubstr("sha-256:"));
    EXPECT_THAT(hashed.out, HasSubstr("crypt:$y$"));
    const TemporaryFile file("[[user]]\nname = \"admin\"\nlive = \"*\"\n" + hashed.out);
    const Outcome checked = run("--check-config -c '" + file.path() + "'");
    EXPECT_EQ(checked.exitCode, exitDone) << checked.err;
    EXPECT_EQ(checked.err, "");
    const Outcome dumped = run("--dump-config -c '" + file.path() + "'");
    EXPECT_THAT(dumped.out, Not(HasSubstr("crypt:")));
    EXPECT_THAT(dumped.out, Not(HasSubstr("sha-256:")));
}

TEST(CommandLine, HashedPasswordBelongsToItsUserAndRealm)
{
    const std::string user = "[[user]]\nlive = \"*\"\nname = \"admin\"\n";
    const std::string hash = runWith("secret", "--hash-password admin").out;
    for (const std::string& start : {std::string("realm = \"yard\"\n") + user,
                                     std::string("[[user]]\nlive = \"*\"\nname = \"other\"\n")})
    {
        const TemporaryFile file(start + hash);
        const Outcome checked = run("--check-config -c '" + file.path() + "'");
        EXPECT_EQ(checked.exitCode, exitConfig);
        EXPECT_THAT(checked.err, HasSubstr("another user name or realm"));
        EXPECT_THAT(checked.err, Not(HasSubstr("md5:")));
    }
    const TemporaryFile yard("realm = \"yard\"\n");
    const TemporaryFile both("realm = \"yard\"\n" + user +
                             runWith("secret", "-c '" + yard.path() + "' --hash-password admin").out);
    EXPECT_EQ(run("--check-config -c '" + both.path() + "'").exitCode, exitDone);
}

TEST(CommandLine, HashesForBasicAloneBelongToNobody)
{
    const Outcome noName = runWith("secret\n", "--hash-password");
    EXPECT_EQ(noName.exitCode, exitDone) << noName.err;
    EXPECT_EQ(valueOf(noName).rfind("crypt:$y$", 0), 0U);
    EXPECT_THAT(noName.err, HasSubstr("needs TLS"));
    const Outcome basicOnly = runWith("secret\n", "--hash-password admin --basic-only");
    EXPECT_EQ(valueOf(basicOnly).rfind("crypt:$y$", 0), 0U);
}

TEST(CommandLine, WithoutAPasswordThereIsNoHash)
{
    for (const std::string line : {"", "\n", "a\tb\n"})
    {
        const Outcome outcome = runWith(line, "--hash-password admin");
        EXPECT_EQ(outcome.exitCode, exitFailed);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(runWith(std::string(5000, 'a'), "--hash-password admin").exitCode, exitFailed);
    EXPECT_EQ(run("--basic-only").exitCode, exitCommandLine);
}

// What a terminal displays while `typed` is typed, and the program's exit code.
Outcome runAtTerminal(const std::string& arguments, const std::vector<std::string>& typed)
{
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
    {
        execl("/bin/sh", "sh", "-c", ("exec timeout 20 '" OV_PROGRAM "' " + arguments).c_str(), nullptr);
        _exit(127);
    }
    const Socket held(terminal);
    Outcome outcome{-1, "", ""};
    std::size_t next = 0;
    std::array<char, 4096> buffer{};
    ssize_t count = 1;
    while (count > 0)
    {
        count = read(terminal, buffer.data(), buffer.size());
        outcome.out.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        // Each question is answered once it is there.
        if (outcome.out.size() >= 2 && outcome.out.substr(outcome.out.size() - 2) == ": " &&
            next < typed.size())
        {
            EXPECT_EQ(write(terminal, typed[next].data(), typed[next].size()),
                      static_cast<ssize_t>(typed[next].size()));
            ++next;
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

TEST(CommandLine, PasswordsTypedAtATerminalAreAskedForTwiceAndNotEchoed)
{
    const Outcome same = runAtTerminal("--hash-password admin", {"hush1\n", "hush1\n"});
    EXPECT_EQ(same.exitCode, exitDone) << same.out;
    EXPECT_THAT(same.out, HasSubstr("Password: "));
    EXPECT_THAT(same.out, HasSubstr("password-hash = "));
    EXPECT_THAT(same.out, Not(HasSubstr("hush1")));
    const Outcome different = runAtTerminal("--hash-password admin", {"hush1\n", "hush2\n"});
    EXPECT_EQ(different.exitCode, exitFailed);
    EXPECT_THAT(different.out, Not(HasSubstr("password-hash = ")));
    const Outcome named = runAtTerminal("--hash-password", {"admin\n", "hush1\n", "hush1\n"});
    EXPECT_THAT(named.out, HasSubstr("md5:"));
}

TEST(CommandLine, UsersMayBeInAFileOfTheirOwn)
{
    const TemporaryFile users(
        "[[group]]\nname = \"g\"\nlive = \"*\"\n[[user]]\nname = \"a\"\npassword = \"hush\"\n"
        "groups = \"g\"\n");
    const TemporaryFile file("users-file = \"" + users.path() +
                             "\"\n[[user]]\nname = \"b\"\npassword = \"hush\"\ngroups = \"g\"\n");
    const Outcome checked = run("--check-config -c '" + file.path() + "'");
    EXPECT_EQ(checked.exitCode, exitDone) << checked.err;
    EXPECT_EQ(checked.err, "");
    EXPECT_THAT(checked.out, HasSubstr("2 users"));
    EXPECT_EQ(chmod(users.path().c_str(), 0644), 0);
    EXPECT_THAT(run("--check-config -c '" + file.path() + "'").err,
                HasSubstr(users.path() + ": warning: it holds passwords and everybody can read it"));
    const Outcome dumped = run("--dump-config -c '" + file.path() + "'");
    EXPECT_THAT(dumped.out, HasSubstr("name = \"b\""));
    EXPECT_THAT(dumped.out, Not(HasSubstr("name = \"a\"")));
    EXPECT_THAT(dumped.out + dumped.err, Not(HasSubstr("hush")));
}

TEST(CommandLine, ProblemsOfTheUsersFileNameIt)
{
    const TemporaryFile users(
        "port = 1\n[[user]]\nname = \"b\"\npassword = \"hush\"\n[[user]]\nname = \"a\"\n");
    const TemporaryFile file("users-file = \"" + users.path() +
                             "\"\n[[user]]\nname = \"b\"\npassword = \"hush\"\n");
    const Outcome outcome = run("--check-config -c '" + file.path() + "'");
    EXPECT_EQ(outcome.exitCode, exitConfig);
    EXPECT_THAT(outcome.err, HasSubstr(users.path() + ":1:1: a users-file holds nothing but"));
    EXPECT_THAT(outcome.err, HasSubstr(users.path() + ":3:8: user \"b\" is defined twice"));
    EXPECT_THAT(outcome.err, HasSubstr(users.path() + ":5:1: this [[user]] has no password"));
    const TemporaryFile gone("users-file = \"none.toml\"\n");
    EXPECT_THAT(run("--check-config -c '" + gone.path() + "'").err, HasSubstr("none.toml: cannot be opened"));
}

TEST(CommandLine, WhatIsNoTomlDoesNotRepeatASecret)
{
    for (const std::string line : {"password = hush", "password = 12345678901234567890", "password = \"hush"})
    {
        const TemporaryFile file("[[user]]\nname = \"a\"\n" + line + "\n");
        const Outcome outcome = run("--check-config -c '" + file.path() + "'");
        EXPECT_EQ(outcome.exitCode, exitConfig);
        EXPECT_THAT(outcome.err, HasSubstr(":3:"));
        EXPECT_THAT(outcome.err, Not(HasSubstr("hush")));
        EXPECT_THAT(outcome.err, Not(HasSubstr("1234")));
    }
}

TEST(CommandLine, PrintsTheVersion)
{
    for (const std::string option : {"--version", "-v"})
    {
        const Outcome outcome = run(option);
        EXPECT_EQ(outcome.exitCode, exitDone);
        EXPECT_EQ(outcome.out, "ovrtspd " OV_VERSION "\n");
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(CommandLine, HelpNamesEveryOptionAndTheExitCodes)
{
    for (const std::string option : {"--help", "-h"})
    {
        const Outcome outcome = run(option);
        EXPECT_EQ(outcome.exitCode, exitDone);
        for (const std::string known :
             {"-c,--config", "--listen", "-p,--port", "--log-level", "--check-config", "--dump-config",
              "-v,--version", "-h,--help", "Exit codes"})
        {
            EXPECT_THAT(outcome.out, HasSubstr(known));
        }
    }
}

TEST(CommandLine, RefusesUnknownOptions)
{
    for (const std::string arguments :
         {"--bogus", "extra", "-c", "--port", "--port x", "--port 65536", "--listen nowhere",
          "--log-level loud", "--check-config --dump-config", "--port=", "-p 1 -p 2"})
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, exitCommandLine) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_NE(outcome.err, "") << arguments;
    }
    EXPECT_THAT(run("--port 65536").err, HasSubstr("--port must be 0 to 65535, not 65536"));
}

TEST(CommandLine, ChecksTheEmbeddedConfiguration)
{
    const Outcome outcome = run("--check-config");
    EXPECT_EQ(outcome.exitCode, exitDone);
    EXPECT_EQ(outcome.out, "the embedded configuration: valid (1 camera, 2 streams, 0 users)\n");
    EXPECT_EQ(outcome.err, "");
}

TEST(CommandLine, CheckPrintsLineAndColumnOfEveryProblem)
{
    const TemporaryFile file("port = 70000\nnonsense = 1\n");
    const Outcome outcome = run("--check-config -c '" + file.path() + "'");
    EXPECT_EQ(outcome.exitCode, exitConfig);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr(file.path() + ":1:8: port must be 0 to 65535, not 70000\n"));
    EXPECT_THAT(outcome.err, HasSubstr(file.path() + ":2:1: unknown key \"nonsense\"\n"));
}

TEST(CommandLine, InvalidConfigurationIsNotServed)
{
    const TemporaryFile file("port = \n");
    EXPECT_EQ(run("-c '" + file.path() + "'").exitCode, exitConfig);
    EXPECT_EQ(run("-c /nonexistent.toml").exitCode, exitConfig);
    EXPECT_EQ(run("-c ''").exitCode, exitConfig);
}

TEST(CommandLine, CheckWarnsOfListeningBeyondLoopbackWithoutUsers)
{
    const Outcome open = run("--check-config --listen 0.0.0.0");
    EXPECT_EQ(open.exitCode, exitDone);
    EXPECT_THAT(open.err, HasSubstr("warning: anybody who reaches 0.0.0.0 can watch"));
    const TemporaryFile file("listen = \"0.0.0.0\"\n[[user]]\nname = \"a\"\npassword = \"hush\"\n");
    const Outcome guarded = run("--check-config -c '" + file.path() + "'");
    EXPECT_EQ(guarded.exitCode, exitDone);
    EXPECT_THAT(guarded.err, Not(HasSubstr("0.0.0.0")));
    EXPECT_THAT(guarded.err, HasSubstr("warning: user \"a\" may do everything"));
    EXPECT_THAT(guarded.out + guarded.err, Not(HasSubstr("hush")));
}

TEST(CommandLine, CheckAndDumpWarnOfAKeyUnderItsFormerName)
{
    const TemporaryFile file("[limits]\ntalkers = 4711\n");
    const std::string warning =
        file.path() + ":2:1: warning: \"talkers\" is the former name of \"talk-senders\": rename it\n";
    for (const std::string option : {"--check-config", "--dump-config"})
    {
        const Outcome outcome = run(option + " -c '" + file.path() + "'");
        EXPECT_EQ(outcome.exitCode, exitDone);
        EXPECT_EQ(outcome.err, warning);
    }
    EXPECT_THAT(run("--dump-config -c '" + file.path() + "'").out, HasSubstr("\ntalk-senders = 4711\n"));
}

// The server's port is in use, so it ends by itself.
TEST(CommandLine, ServersLogWarnsOfAKeyUnderItsFormerName)
{
    const Socket taken(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(taken.get(), 1), 0);
    ASSERT_EQ(getsockname(taken.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    const TemporaryFile file("[limits]\ntalkers = 4711\n");

    const Outcome outcome = run("-c '" + file.path() + "' -p " + std::to_string(ntohs(address.sin_port)));

    EXPECT_EQ(outcome.exitCode, exitFailed);
    const std::size_t warning = outcome.err.find(
        file.path() + ":2:1: \"talkers\" is the former name of \"talk-senders\": rename it\n");
    ASSERT_NE(warning, std::string::npos) << outcome.err;
    const std::size_t lineStart = outcome.err.rfind('\n', warning) + 1;
    EXPECT_THAT(outcome.err.substr(lineStart, warning - lineStart), HasSubstr("warning"));
}

TEST(CommandLine, DumpIsAConfigurationWithTheOverrides)
{
    const Outcome dumped = run("--dump-config -p 1234 --listen ::1 --log-level debug");
    EXPECT_EQ(dumped.exitCode, exitDone);
    EXPECT_THAT(dumped.out, HasSubstr("\nport = 1234\n"));
    EXPECT_THAT(dumped.out, HasSubstr("\nlisten = \"::1\"\n"));
    EXPECT_THAT(dumped.out, HasSubstr("\nlog-level = \"debug\"\n"));
    const TemporaryFile file(dumped.out);
    const Outcome again = run("--dump-config -c '" + file.path() + "'");
    EXPECT_EQ(again.exitCode, exitDone);
    EXPECT_EQ(again.out, dumped.out);
}

TEST(CommandLine, TheExampleIsAcceptedByTheProgram)
{
    const Outcome outcome = run("--check-config -c '" OV_SOURCE_DIR "/packaging/ovrtspd.toml'");
    EXPECT_EQ(outcome.exitCode, exitDone);
    EXPECT_EQ(outcome.err, "");
}

}  // namespace
}  // namespace refhost
