#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <cstddef>
#include <map>
#include <memory>
#include <utility>

#include "refhost/capture/CameraStream.h"
#include "refhost/config/Config.h"
#include "refhost/media/StreamSource.h"

namespace refhost
{

/// The streams of a configuration, on GStreamer. Threads: any.
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

    std::size_t count() const
    {
        return streams_.size();
    }
    /// How many deliver media, or try to; the rest has no viewers.
    std::size_t running() const;

    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override;
    bool describeBackChannel(int cameraId, SubMediaInfo& out) override;

private:
    void makeThreads();

    const std::shared_ptr<TaskQueue> queue_ = std::make_shared<TaskQueue>();
    std::map<std::pair<int, int>, std::shared_ptr<CameraStream>> streams_;
    std::map<int, SubMediaInfo> backChannels_;  // by camera, of those that have one
};

}  // namespace refhost
