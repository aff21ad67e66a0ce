#pragma once

#include <sstream>
#include <string>

#include "tests/refhost/rtsp/session/FakeControllers.h"

namespace refhost
{
namespace test
{

/// A recording of 60 seconds from 2023-11-14 22:13:20 UTC on, and the position of its one session.
struct RecordingScript : ControllerScript
{
    static constexpr std::int64_t beginTime = 1700000000;
    static constexpr double seconds = 60;

    /// Playing has reached `instant`.
    void place(double instant)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        begin = instant;
    }

    void result(const std::string& operation, int code)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        results[operation] = code;
    }

    double begin = 0;
    double end = seconds;
    Duration lead{};  ///< its first frame is that much earlier
};

/// A controller of recordings that records its calls and seeks at once.
class FakeRecording : public FakeController
{
public:
    explicit FakeRecording(std::shared_ptr<RecordingScript> script)
        : FakeController(script), recording_(std::move(script))
    {
    }

    int getMediaInfo(MediaInfo& out) override
    {
        FakeController::getMediaInfo(out);
        out.mediaUrl = "orv/playback/1_1700000000_1700000060";
        out.recordBeginTime = RecordingScript::beginTime * 1'000'000'000 - recording_->lead.count();
        out.recordSeconds =
            RecordingScript::seconds + std::chrono::duration<double>(recording_->lead).count();
        return 0;
    }

    int correctPlayRange(const std::string&, const std::string&, double begin, double end,
                         double& correctedBegin, double& correctedEnd) override
    {
        const double duration = RecordingScript::seconds;
        correctedBegin = begin >= 0 && begin < duration ? begin : 0;
        correctedEnd = end >= 0 && end <= duration ? end : duration;
        return 0;
    }

    int setPlayRange(const std::string&, const std::string& trackId, double begin, double end, int kind,
                     bool toRange) override
    {
        std::ostringstream text;
        text << "setPlayRange " << trackId << " " << begin << " " << end << " " << kind << " " << toRange;
        const int code = recording_->call(text.str());
        if (code == 0 && toRange)
        {
            const std::lock_guard<std::mutex> guard(recording_->mutex);
            recording_->begin = begin;
            recording_->end = end;
        }
        return code;
    }

    int getCurPlayRange(const std::string&, const std::string&, double& begin, double& end) override
    {
        const std::lock_guard<std::mutex> guard(recording_->mutex);
        begin = recording_->begin;
        end = recording_->end;
        return 0;
    }

    int setPauseRange(const std::string&, const std::string& trackId, double instant) override
    {
        std::ostringstream text;
        text << "setPauseRange " << trackId << " " << instant;
        return recording_->call(text.str());
    }

    int setSpeed(const std::string&, const std::string& trackId, double scale, double speed) override
    {
        std::ostringstream text;
        text << "setSpeed " << trackId << " " << scale << " " << speed;
        return recording_->call(text.str());
    }

    int getCurRTPPacketInfo(const std::string&, const std::string& trackId, RTPPacketInfo& out) override
    {
        out.sequenceNumber = trackId == "trackID=0" ? 10 : 20;
        out.rtpTimestamp = trackId == "trackID=0" ? 90000 : 8000;
        return 0;
    }

private:
    const std::shared_ptr<RecordingScript> recording_;
};

class FakeRecordingFactory : public IRTSPControllerFactory
{
public:
    explicit FakeRecordingFactory(std::shared_ptr<RecordingScript> script) : script_(std::move(script)) {}

    int createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool) override
    {
        out = SafePointer<IRTSPController>(new FakeRecording(script_));
        return script_->call("create " + url);
    }

private:
    const std::shared_ptr<RecordingScript> script_;
};

}  // namespace test
}  // namespace refhost
