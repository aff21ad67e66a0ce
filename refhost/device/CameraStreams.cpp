#include "refhost/device/CameraStreams.h"

#include <fmt/format.h>
#include <gst/gst.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace refhost
{

/// Who is told of changes; streams may outlive the directory that made them.
class CameraStreams::Subscribers
{
public:
    int add(std::function<void()> changed)
    {
        const std::lock_guard<std::mutex> guard(listMutex_);
        functions_[++lastId_] = std::move(changed);
        return lastId_;
    }

    void remove(int id)
    {
        {
            const std::lock_guard<std::mutex> guard(listMutex_);
            functions_.erase(id);
        }
        // Waits for a call under way, except for one that this very call comes out of.
        const std::lock_guard<std::recursive_mutex> wait(callMutex_);
    }

    void tell()
    {
        const std::lock_guard<std::recursive_mutex> guard(callMutex_);
        for (const int id : ids())
        {
            if (const std::function<void()> changed = find(id))
            {
                changed();
            }
        }
    }

private:
    std::vector<int> ids()
    {
        const std::lock_guard<std::mutex> guard(listMutex_);
        std::vector<int> all;
        for (const auto& [id, changed] : functions_)
        {
            all.push_back(id);
        }
        return all;
    }

    std::function<void()> find(int id)
    {
        const std::lock_guard<std::mutex> guard(listMutex_);
        const auto found = functions_.find(id);
        return found == functions_.end() ? nullptr : found->second;
    }

    std::mutex listMutex_;
    std::map<int, std::function<void()>> functions_;
    int lastId_ = 0;
    std::recursive_mutex callMutex_;
};

namespace
{

CameraStream::Options optionsOf(const ServerConfig& config)
{
    CameraStream::Options options;
    options.linger = std::chrono::seconds(config.linger);
    return options;
}

std::string titleOf(const CameraConfig& camera, const StreamConfig& stream)
{
    const std::string name = camera.name.empty() ? fmt::format("camera {}", camera.id) : camera.name;
    return fmt::format("{} stream {}", name, stream.id);
}

}  // namespace

CameraStreams::CameraStreams(const ServerConfig& config) : CameraStreams(config, optionsOf(config)) {}

CameraStreams::CameraStreams(const ServerConfig& config, const CameraStream::Options& options)
    : subscribers_(std::make_shared<Subscribers>())
{
    gst_init(nullptr, nullptr);
    const auto changed = [subscribers = subscribers_] { subscribers->tell(); };
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            streams_[{camera.id, stream.id}] =
                std::make_shared<CameraStream>(stream, titleOf(camera, stream), options, changed);
        }
    }
}

CameraStreams::~CameraStreams() = default;

std::shared_ptr<StreamSource> CameraStreams::find(int cameraId, int streamId)
{
    const auto found = streams_.find({cameraId, streamId});
    return found == streams_.end() ? nullptr : found->second;
}

int CameraStreams::subscribe(std::function<void()> changed)
{
    return subscribers_->add(std::move(changed));
}

void CameraStreams::unsubscribe(int id)
{
    subscribers_->remove(id);
}

}  // namespace refhost
