#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "live/IRTSPController.h"
#include "live/IRTSPControllerFactory.h"
#include "tests/refhost/rtsp/connection/HandFedStreams.h"

namespace refhost
{
namespace test
{

/// The calls of controllers in order, and their results.
struct ControllerScript
{
    /// Records a call and returns its result.
    int call(const std::string& text)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        calls.push_back(text);
        if (++count == throwAt)
        {
            throw OVRuntimeError("scripted");
        }
        if (count == failAt)
        {
            return -77;
        }
        auto found = results.find(text);
        found = found == results.end() ? results.find(text.substr(0, text.find(' '))) : found;
        return found == results.end() ? 0 : found->second;
    }

    /// Calls of that operation, with the track's name if given.
    long countOf(const std::string& prefix)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return std::count_if(calls.begin(), calls.end(),
                             [&prefix](const std::string& text)
                             { return text.substr(0, prefix.size()) == prefix; });
    }

    std::mutex mutex;
    std::vector<std::string> calls;
    std::map<std::string, int> results;  ///< by a call's name, or by its whole text
    bool audio = true;                   ///< the device sends "trackID=1"
    bool talkBack = false;               ///< there is a back channel, "trackID=talk"
    int failAt = 0;                      ///< number of the call that fails
    int throwAt = 0;                     ///< number of the call that throws
    int count = 0;
    int living = 0;  ///< controllers
};

/// Two tracks; everything succeeds unless the script says otherwise.
class FakeController : public IRTSPController
{
public:
    explicit FakeController(std::shared_ptr<ControllerScript> script) : script_(std::move(script))
    {
        const std::lock_guard<std::mutex> guard(script_->mutex);
        ++script_->living;
    }

    ~FakeController() noexcept(false) override
    {
        const std::lock_guard<std::mutex> guard(script_->mutex);
        --script_->living;
    }

    int getMediaInfo(MediaInfo& out) override
    {
        out.clearAllSubMediaInfo();
        out.addSubMediaInfo(SampleTracks::video());
        if (script_->audio)
        {
            out.addSubMediaInfo(SampleTracks::audio());
        }
        if (script_->talkBack)
        {
            SubMediaInfo back = SampleTracks::audio();
            back.trackId = "trackID=talk";
            back.setAudioBackInfoFlag(true);
            out.addSubMediaInfo(back);
        }
        return 0;
    }

    int mediaInit() override
    {
        return 0;
    }

    int setup(const std::string&, const std::string& trackId,
              const SafePointer<IConnection>& connection) override
    {
        return script_->call("setup " + trackId + " " + std::to_string(connection->transportKind));
    }

    int play(const std::string&, const std::string& trackId) override
    {
        return script_->call("play " + trackId);
    }

    int setPlayRange(const std::string&, const std::string&, double, double, int, bool) override
    {
        return 0;
    }

    int getCurPlayRange(const std::string&, const std::string&, double&, double&) override
    {
        return 0;
    }

    int correctPlayRange(const std::string&, const std::string&, double, double, double&, double&) override
    {
        return 0;
    }

    int pause(const std::string&, const std::string& trackId) override
    {
        return script_->call("pause " + trackId);
    }

    int setPauseRange(const std::string&, const std::string&, double) override
    {
        return 0;
    }

    int stop(const std::string&, const std::string& trackId) override
    {
        return script_->call("stop " + trackId);
    }

    int getConnetionState(std::string, std::string, bool&) override
    {
        return 0;
    }

    int setSpeed(const std::string&, const std::string&, double, double) override
    {
        return 0;
    }

    void setRTCPFrequence(const std::string&, const std::string&, int) override {}

    int getTrackSSRC(const std::string&, const std::string&, int& ssrc) override
    {
        ssrc = static_cast<int>(0xFEDCBA98u);
        return 0;
    }

private:
    const std::shared_ptr<ControllerScript> script_;
};

class FakeControllerFactory : public IRTSPControllerFactory
{
public:
    explicit FakeControllerFactory(std::shared_ptr<ControllerScript> script) : script_(std::move(script)) {}

    int createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool) override
    {
        out = SafePointer<IRTSPController>(new FakeController(script_));
        return script_->call("create " + url);
    }

private:
    const std::shared_ptr<ControllerScript> script_;
};

}  // namespace test
}  // namespace refhost
