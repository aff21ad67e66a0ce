#include "refhost/ExportCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <csignal>
#include <ostream>

#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"
#include "refhost/export/ExportFile.h"
#include "refhost/export/InstantText.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

/// Set by signals that end the program.
std::atomic<bool>& interrupted()
{
    static std::atomic<bool> flag{false};
    return flag;
}

void onSignal(int)
{
    interrupted() = true;
}

void catchSignals()
{
    interrupted() = false;
    struct sigaction action
    {
    };
    action.sa_handler = onSignal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        ::sigaction(signal, &action, nullptr);
    }
}

std::optional<int> numberOf(std::string_view text)
{
    int value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failure == std::errc() && end == text.data() + text.size() && value >= 0
               ? std::optional<int>(value)
               : std::nullopt;
}

/// \returns an empty text, or what is wrong
std::string read(const std::vector<std::string>& arguments, ExportPlan::Request& out)
{
    const std::string_view camera = arguments[0];
    const std::size_t slash = camera.find('/');
    const auto cameraId = numberOf(camera.substr(0, slash));
    if (slash != std::string_view::npos)
    {
        out.streamId = numberOf(camera.substr(slash + 1));
    }
    if (!cameraId || (slash != std::string_view::npos && !out.streamId))
    {
        return "CAMERA must be a camera's id such as 1, or 1/0 for one of its streams";
    }
    const auto begin = InstantText::parse(arguments[1]);
    const auto end = InstantText::parse(arguments[2]);
    if (!begin || !end)
    {
        return std::string(begin ? "END" : "START") +
               " must be seconds since 1970, or a time such as 2026-01-31T12:00:00.5Z";
    }
    out.cameraId = *cameraId;
    out.begin = *begin;
    out.end = *end;
    return "";
}

/// A line that is written over and over.
class ProgressBar
{
public:
    explicit ProgressBar(std::ostream& out) : out_(out) {}

    void show(std::uint64_t done, std::uint64_t size)
    {
        constexpr std::uint64_t width = 40;
        const std::uint64_t percent = size == 0 ? 100 : done * 100 / size;
        if (percent == percent_)
        {
            return;
        }
        percent_ = percent;
        const auto filled = static_cast<std::size_t>(percent * width / 100);
        out_ << fmt::format("\r[{:<{}}] {:3} % of {:.1f} MiB", std::string(filled, '#'), width, percent,
                            static_cast<double>(size) / (1 << 20U))
             << std::flush;
    }
    void end()
    {
        out_ << (percent_ <= 100 ? "\n" : "") << std::flush;
    }

private:
    std::ostream& out_;
    std::uint64_t percent_ = 101;
};

}  // namespace

int ExportCommand::run(const ServerConfig& config, const std::vector<std::string>& arguments)
{
    ExportPlan::Request request;
    std::string error = read(arguments, request);
    if (!error.empty())
    {
        err_ << "--export: " << error << '\n';
        return exitCommandLine;
    }
    const auto index = RecordingIndex::openToRead(config.recording.directory, error);
    if (!index)
    {
        err_ << "no recordings: " << error << '\n';
        return exitFailed;
    }
    ExportPlan::Problem problem{};
    const IndexedRecordings recordings(index);
    const auto source = Mp4Export::open(recordings, request, problem, error);
    if (!source)
    {
        err_ << "nothing exported: " << error << '\n';
        return problem == ExportPlan::Problem::interval ? exitCommandLine : exitFailed;
    }
    catchSignals();
    ProgressBar bar(err_);
    ExportFile::Progress progress = [](std::uint64_t, std::uint64_t) {};
    if (::isatty(STDERR_FILENO) == 1)
    {
        progress = [&bar](std::uint64_t done, std::uint64_t size) { bar.show(done, size); };
    }
    const std::string& file = arguments[3];
    const bool written = ExportFile::write(*source, file, progress, &interrupted(), error);
    bar.end();
    if (!written)
    {
        err_ << "nothing exported: " << error << '\n';
        return exitFailed;
    }
    const std::string rest =
        source->leftOut() == 0
            ? ""
            : fmt::format(", without {} recordings that could not be read or have another codec",
                          source->leftOut());
    out_ << fmt::format("{}: {} bytes{}\n", file, source->size(), rest);
    return exitDone;
}

}  // namespace refhost
