#include "refhost/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iterator>
#include <ostream>

#include "refhost/ExportCommand.h"
#include "refhost/PasswordPrompt.h"
#include "refhost/ReloadSocket.h"
#include "refhost/ServerAddress.h"
#include "refhost/access/DigestAuth.h"
#include "refhost/access/SlowHash.h"
#include "refhost/base/Log.h"
#include "refhost/config/ConfigReader.h"
#include "refhost/config/ConfigSecrets.h"
#include "refhost/config/ConfigWriter.h"
#include "refhost/config/PasswordHash.h"
#include "refhost/doctor/Doctor.h"
#include "refhost/doctor/DoctorReport.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/RecordingListing.h"
#include "refhost/rtsp/connection/TlsAcceptor.h"

namespace refhost
{
namespace
{

// A command line option that overrides a key of the configuration.
struct Override
{
    const char* flags;
    const char* key;
    const char* placeholder;
    const char* help;
    std::string value;
};

std::string summary(const ServerConfig& config)
{
    std::size_t streams = 0;
    for (const CameraConfig& camera : config.cameras)
    {
        streams += camera.streams.size();
    }
    const auto counted = [](std::size_t count, const std::string& what)
    { return std::to_string(count) + " " + what + (count == 1 ? "" : "s"); };
    return counted(config.cameras.size(), "camera") + ", " + counted(streams, "stream") + ", " +
           counted(config.users.size(), "user");
}

}  // namespace

CommandLine::CommandLine(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

const ServerConfig& CommandLine::config() const
{
    return config_;
}

std::vector<std::string> CommandLine::warnings() const
{
    std::vector<std::string> texts;
    std::transform(warnings_.begin(), warnings_.end(), std::back_inserter(texts),
                   [this](const ConfigProblem& warning) { return warning.toString(source_.file); });
    return texts;
}

const ConfigSource& CommandLine::source() const
{
    return source_;
}

int CommandLine::exitCode() const
{
    return exitCode_;
}

bool CommandLine::finish(int code)
{
    exitCode_ = code;
    return false;
}

bool CommandLine::readConfig(const std::string& file)
{
    ConfigResult result = ConfigReader::readFile(file);
    for (const ConfigProblem& problem : result.problems)
    {
        err_ << problem.toString(file) << '\n';
    }
    if (!result.config)
    {
        return finish(exitConfig);
    }
    config_ = std::move(*result.config);
    source_.file = file;
    warnings_ = std::move(result.warnings);
    if (const auto exposed = ConfigSecrets::exposedBy(file, config_))
    {
        err_ << file << ": warning: " << *exposed << '\n';
    }
    if (const auto exposed = ConfigSecrets::exposedByUsersFile(config_))
    {
        err_ << config_.usersFile << ": warning: " << *exposed << '\n';
    }
    return true;
}

/// Prints what the configuration takes as password-hash.
bool CommandLine::hashPassword(std::string user, bool digest)
{
    PasswordPrompt prompt(STDIN_FILENO, STDERR_FILENO);
    std::string password;
    if (user.empty() && digest && prompt.isTerminal() && !prompt.read("User name: ", user, true))
    {
        return finish(exitFailed);
    }
    if (!prompt.read("Password: ", password, false) || password.empty())
    {
        err_ << "there is no password\n";
        return finish(exitFailed);
    }
    std::string again = password;
    if (prompt.isTerminal() && (!prompt.read("Once more: ", again, false) || again != password))
    {
        err_ << "these are two passwords\n";
        return finish(exitFailed);
    }
    PasswordHash hash;
    if (digest && !user.empty())
    {
        using Algorithm = DigestAuth::Algorithm;
        hash.binding = PasswordHash::bindingOf(user, config_.realm);
        hash.md5 = DigestAuth::secret(Algorithm::md5, user, config_.realm, password);
        hash.sha256 = DigestAuth::secret(Algorithm::sha256, user, config_.realm, password);
    }
    else
    {
        err_ << "it serves Basic alone, which needs TLS: give a user name for Digest\n";
    }
    hash.crypt = SlowHash::make(password);
    out_ << "password-hash = \"" << hash.text() << "\"\n";
    return finish(exitDone);
}

bool CommandLine::listRecordings()
{
    std::string error;
    const auto index = RecordingIndex::openToRead(config_.recording.directory, error);
    if (!index)
    {
        err_ << "no recordings: " << error << '\n';
        return finish(exitFailed);
    }
    const RecordingListing listing(serverUrl(config_.listen, config_.port) + "orv/playback/",
                                   RecordingFolder::isInUse(index->directory()),
                                   [this](int camera, int stream)
                                   { return config_.streamName(camera, stream); });
    listing.write(*index, out_);
    return finish(exitDone);
}

bool CommandLine::examine(const std::string& file, bool json)
{
    // What the sources log is among the findings.
    Log::setLevel(Log::Level::off);
    ConfigResult read;
    if (file.empty())
    {
        read.config = ServerConfig::embedded();
    }
    else
    {
        read = ConfigReader::readFile(file);
    }
    const std::vector<Finding> findings = Doctor(std::move(read), file).examine();
    if (json)
    {
        DoctorReport::writeJson(findings, out_);
    }
    else
    {
        DoctorReport::writeText(findings, out_);
    }
    return finish(DoctorReport::exitCode(findings));
}

bool CommandLine::parse(int count, const char* const* arguments)
{
    CLI::App app(
        "Streams cameras to RTSP players. Without a configuration file it serves a synthetic camera on "
        "127.0.0.1:8554.",
        "ovrtspd");
    app.footer(
        "Exit codes: 0 ended as asked, 1 the server could not start, there is none to reload, or nothing to "
        "list "
        "or export, 2 wrong command line, 3 wrong configuration.");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("-v,--version", "ovrtspd " OV_VERSION, "Print the version and exit");
    std::string file;
    bool check = false;
    bool dump = false;
    bool recordings = false;
    bool reload = false;
    CLI::Option* const fileOption =
        app.add_option("-c,--config", file, "Read the configuration from this TOML file")->type_name("FILE");
    std::array<Override, 3> overrides{{
        {"--listen", "listen", "ADDRESS", "Listen on this address instead of the configured one", {}},
        {"-p,--port",
         "port",
         "PORT",
         "Listen on this TCP port instead of the configured one; 0 takes a free one",
         {}},
        {"--log-level", "log-level", "LEVEL", "trace, debug, info, warning, error or off", {}},
    }};
    std::array<CLI::Option*, 3> options{};
    for (std::size_t i = 0; i < overrides.size(); ++i)
    {
        Override& given = overrides.at(i);
        options.at(i) = app.add_option(given.flags, given.value, given.help)->type_name(given.placeholder);
    }
    CLI::Option* const checkFlag =
        app.add_flag("--check-config", check, "Check the configuration, report what is wrong, and exit");
    app.add_flag("--dump-config", dump,
                 "Print the effective configuration with every key explained, and exit")
        ->excludes(checkFlag);
    std::string hashedUser;
    bool basicOnly = false;
    CLI::Option* const hashOption =
        app.add_option(
               "--hash-password", hashedUser,
               "Ask for a password, or read a line of a pipe, print the password-hash of this user for the "
               "realm of the configuration, and exit")
            ->type_name("NAME")
            ->expected(0, 1)
            ->excludes(checkFlag);
    app.add_flag("--basic-only", basicOnly,
                 "With --hash-password: leave out what Digest needs, which is as good as the password")
        ->needs(hashOption);
    app.add_flag("--recordings", recordings,
                 "List what was recorded, with URLs that play it, and exit; a server may run meanwhile");
    std::vector<std::string> exported;
    app.add_option(
           "--export", exported,
           "Write what a camera recorded from START to END to an MP4 file, and exit; a server may run "
           "meanwhile. Times are seconds since 1970, or such as 2026-01-31T12:00:00.5Z")
        ->expected(4)
        ->type_name("CAMERA START END FILE");
    bool noSandbox = false;
    app.add_flag("--no-sandbox", noSandbox,
                 "Serve without limits of the server's own, for sources that need more than usual ones");
    bool json = false;
    CLI::App* const doctor = app.add_subcommand(
        "doctor",
        "Look for what can keep the server from working here, and say how to mend it; the exit code "
        "is the number of failures");
    doctor->add_flag("--json", json, "Print the findings as JSON");
    doctor->fallthrough();
    app.add_flag("--reload", reload,
                 "Have the server that runs with this --config read it again, say what came of it, and exit")
        ->needs(fileOption);

    try
    {
        app.parse(count, arguments);
    }
    catch (const CLI::ParseError& error)
    {
        // --help and --version are reported as exceptions too.
        const bool succeeded = error.get_exit_code() == 0;
        app.exit(error, out_, err_);
        return finish(succeeded ? exitDone : exitCommandLine);
    }

    if (reload)
    {
        return finish(ReloadSocket::ask(file, out_, err_));
    }
    // An empty file name is an error, such as a script's empty variable, not the embedded configuration.
    const bool hasFile = fileOption->count() > 0;
    if (doctor->parsed())
    {
        return hasFile && file.empty() ? readConfig(file) : examine(file, json);
    }
    if (hasFile && !readConfig(file))
    {
        return false;
    }
    for (std::size_t i = 0; i < overrides.size(); ++i)
    {
        const Override& given = overrides.at(i);
        const std::string problem =
            options.at(i)->count() == 0 ? "" : ConfigReader::set(config_, given.key, given.value);
        if (!problem.empty())
        {
            err_ << "--" << given.key << " " << problem << '\n';
            return finish(exitCommandLine);
        }
        if (options.at(i)->count() > 0)
        {
            source_.overrides.emplace_back(given.key, given.value);
        }
    }
    if (noSandbox)
    {
        ConfigReader::set(config_, "sandbox", "false");
        source_.overrides.emplace_back("sandbox", "false");
    }
    if (hashOption->count() > 0)
    {
        return hashPassword(hashedUser, !basicOnly);
    }
    if (!recordings && !dump && !check && exported.empty())
    {
        return true;
    }
    for (const ConfigProblem& warning : warnings_)
    {
        const std::string message = "warning: " + warning.message;
        err_ << ConfigProblem{warning.line, warning.column, message}.toString(file) << '\n';
    }
    if (recordings)
    {
        return listRecordings();
    }
    if (!exported.empty())
    {
        return finish(ExportCommand(out_, err_).run(config_, exported));
    }
    if (dump)
    {
        out_ << ConfigWriter::write(config_);
        return finish(exitDone);
    }
    const std::string name = hasFile ? file : "the embedded configuration";
    for (const std::string& warning : config_.warnings())
    {
        err_ << name << ": warning: " << warning << '\n';
    }
    std::string error;
    if (config_.tls.enabled() && !config_.tls.selfSigned && TlsAcceptor::open(config_.tls, error) == nullptr)
    {
        err_ << name << ": " << error << '\n';
        return finish(exitConfig);
    }
    out_ << name << ": valid (" << summary(config_) << ")\n";
    return finish(exitDone);
}

}  // namespace refhost
