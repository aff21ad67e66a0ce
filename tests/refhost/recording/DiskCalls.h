#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace refhost
{

/// What the process asks the disk to do with recorded files (`*.mkv`), and a disk that fails or hangs. The
/// program that links DiskCalls.cpp calls it in the place of the C library.
class DiskCalls
{
public:
    /// One call of sync_file_range() or fdatasync().
    struct Call
    {
        std::string name;  ///< "start" or "sync"
        std::string path;
        double seconds;  ///< of media that the file held then
    };

    static DiskCalls& instance();

    /// Forgets what came; the disk works.
    void reset();
    std::vector<Call> calls() const;
    /// Waits until the disk was asked to sync the file with at least so much media in it.
    bool waitForSync(const std::string& path, double seconds) const;

    void failSyncs(bool fail);
    /// From now on calls for files whose path contains `part` hang until let go. \param call  "write" or "sync"
    void hang(const std::string& call, const std::string& part);
    /// Waits until so many calls hang.
    bool waitForHanging(int count) const;
    void release();

    // What the calls themselves ask.
    /// \returns 0 or an `errno`
    int note(const std::string& name, int file);
    void stall(const std::string& call, int file);

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Call> calls_;
    bool fails_ = false;
    std::string hangingCall_;
    std::string hangingPart_;
    int hanging_ = 0;
};

}  // namespace refhost
