#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/capture/CameraStream.h"
#include "refhost/config/Config.h"
#include "refhost/media/StreamSource.h"

namespace refhost
{

/// The streams of a configuration, on GStreamer. Threads: any; setConfig() and endRemoved() one at a time.
class CameraStreams : public StreamDirectory
{
public:
    /// Initializes GStreamer for the process and creates every stream; none is started.
    /// \throws std::system_error when the system has no thread for them
    explicit CameraStreams(const ServerConfig& config);
    /// The same with other options than usualOptions(); a camera's configuration replaces its options.
    CameraStreams(const ServerConfig& config, const CameraStream::Options& options);
    ~CameraStreams() override;

    static CameraStream::Options usualOptions(const ServerConfig& config);

    /// How many are configured.
    std::size_t count() const;
    /// How many deliver media, or try to; the rest has no viewers.
    std::size_t running() const;

    /// Camera and stream of those whose viewers are to be ended. \see CameraStream::isAway()
    std::set<std::pair<int, int>> away() const;

    /// What became of streams by another configuration.
    struct Changed
    {
        std::set<std::pair<int, int>> removed;  ///< camera and stream: not found any more
        std::set<std::pair<int, int>>
            described;  ///< what they send may be described otherwise: their sessions end
    };

    /// Applies another configuration: streams that it does not have are not found any more, and end once nothing else
    /// holds them; those that are new are found; those whose source differs start again, with their viewers. The rest
    /// is not touched.
    Changed setConfig(const ServerConfig& config);

    /// Ends the sources of removed streams that nothing else holds. Waits for each at most for its end deadline.
    /// \returns how many are still held
    std::size_t endRemoved();

    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override;
    bool describeBackChannel(int cameraId, SubMediaInfo& out) override;

private:
    using Id = std::pair<int, int>;

    /// A stream with what it was configured by.
    struct Entry
    {
        std::shared_ptr<CameraStream> stream;
        CameraConfig camera;
        StreamConfig config;
    };

    void makeThreads();
    Entry makeStream(const CameraConfig& camera, const StreamConfig& stream) const;
    bool change(Entry& entry, const CameraConfig& camera, const StreamConfig& stream) const;

    const std::shared_ptr<TaskQueue> queue_ = std::make_shared<TaskQueue>();
    CameraStream::Options options_;  ///< changed by setConfig() alone
    mutable Mutex mutex_;
    std::map<Id, Entry> streams_ OV_GUARDED_BY(mutex_);
    std::map<int, SubMediaInfo> backChannels_ OV_GUARDED_BY(mutex_);  ///< by camera, of those that have one
    std::vector<std::shared_ptr<CameraStream>> removed_;  ///< used by setConfig() and endRemoved() alone
};

}  // namespace refhost
