#pragma once
// Tested by tests/refhost/talkback/outputs/ClockedOutput_test.cpp.

#include <atomic>
#include <memory>
#include <vector>

#include "refhost/talkback/outputs/ClockedOutput.h"
#include "refhost/talkback/outputs/WavFile.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// Writes what a loudspeaker would play to a WAV file: each sample at its time since the opening, silence in
/// between. Appends to an existing file.
///
/// A thread of its own writes, because callers must not wait for a disk.
class WavOutput : public ClockedOutput
{
public:
    /// \param clock  outlives the output
    WavOutput(std::string path, const HostClock& clock);
    ~WavOutput() override;

    std::string name() const override;
    bool open(const PcmFormat& format, std::string& problem) override;
    std::optional<std::size_t> queued() override;
    /// Also fails when the disk is seconds behind.
    bool write(const std::int16_t* samples, std::size_t frames) override;
    /// Pending audio is still written; the destructor and open() wait for that.
    void close() override;

private:
    void finish();

    const std::string path_;
    PcmFormat format_;
    bool open_ = false;
    std::uint64_t begin_ = 0;              // frames in the file at the opening
    WavFile file_;                         // used by the writer while it has tasks
    std::atomic<bool> failed_{false};      // writing failed
    std::atomic<std::size_t> waiting_{0};  // frames not written yet
    std::unique_ptr<TaskQueue> writer_;
};

}  // namespace refhost
