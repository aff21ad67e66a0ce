#pragma once
// Tested by tests/refhost/recording/DiskSync_test.cpp.

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "refhost/base/Descriptor.h"

namespace refhost
{

/// A file that one thread writes and DiskSync brings to the disk. It is closed when both have let it go.
/// Threads: any; the writer guards its own calls.
class SyncedFile
{
public:
    /// Whether the disk took what was written; lives longer than the open file.
    struct Outcome
    {
        explicit Outcome(std::string of) : path(std::move(of)) {}

        const std::string path;
        std::atomic<int> failure{0};  ///< an `errno`; 0: none so far
    };
    using Result = std::shared_ptr<const Outcome>;

    /// \param file  open to be written
    SyncedFile(Descriptor file, std::string path)
        : file_(std::move(file)), outcome_(std::make_shared<Outcome>(std::move(path)))
    {
    }
    SyncedFile(const SyncedFile&) = delete;
    SyncedFile& operator=(const SyncedFile&) = delete;

    int descriptor() const
    {
        return file_.get();
    }
    Result result() const
    {
        return outcome_;
    }

private:
    friend class DiskSync;

    const Descriptor file_;
    const std::shared_ptr<Outcome> outcome_;
    std::atomic<bool> waiting_{false};  ///< for DiskSync's next pass
};

}  // namespace refhost
