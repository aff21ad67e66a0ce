#include "refhost/talkback/outputs/WavOutput.h"

#include <future>
#include <utility>

namespace refhost
{
namespace
{

constexpr std::chrono::seconds maxWaiting(4);

}  // namespace

WavOutput::WavOutput(std::string path, const HostClock& clock) : ClockedOutput(clock), path_(std::move(path))
{
}

WavOutput::~WavOutput()
{
    WavOutput::close();
    finish();
}

std::string WavOutput::name() const
{
    return "WAV file " + path_;
}

void WavOutput::finish()
{
    if (writer_)
    {
        std::promise<void> written;
        writer_->post([&written] { written.set_value(); });
        written.get_future().wait();
        writer_.reset();
    }
}

bool WavOutput::open(const PcmFormat& format, std::string& problem)
{
    close();
    finish();
    if (!file_.open(path_, format, problem))
    {
        return false;
    }
    begin_ = file_.frames();
    format_ = format;
    failed_ = false;
    waiting_ = 0;
    writer_ = std::make_unique<TaskQueue>();
    open_ = ClockedOutput::open(format, problem);
    return open_;
}

std::optional<std::size_t> WavOutput::queued()
{
    return open_ && !failed_ ? ClockedOutput::queued() : std::nullopt;
}

bool WavOutput::write(const std::int16_t* samples, std::size_t frames)
{
    const std::size_t max = format_.frames(maxWaiting);
    if (!open_ || failed_ || waiting_ + frames > max)
    {
        return false;
    }
    const std::uint64_t at = begin_ + place(frames);
    std::vector<std::int16_t> copy(samples, samples + frames * static_cast<std::size_t>(format_.channels));
    waiting_ += frames;
    writer_->post(
        [this, at, frames, copy = std::move(copy)]
        {
            if (!failed_ && !file_.write(at, copy))
            {
                failed_ = true;
            }
            waiting_ -= frames;
        });
    return true;
}

void WavOutput::close()
{
    if (!open_)
    {
        return;
    }
    open_ = false;
    const std::uint64_t end = begin_ + passed();
    writer_->post(
        [this, end]
        {
            if (!failed_)
            {
                file_.extend(end);
            }
            file_.close();
        });
}

}  // namespace refhost
