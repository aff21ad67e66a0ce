#include "refhost/http/MetricsRoutes.h"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/AuditLog.h"
#include "refhost/base/DiskSpace.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/ServerFigures.h"
#include "refhost/http/HttpService.h"
#include "refhost/http/MetricsText.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingIndex.h"
#include "refhost/threads/LoopMonitor.h"

namespace refhost
{
namespace
{

constexpr std::string_view counter = "counter";
constexpr std::string_view gauge = "gauge";

constexpr std::array<CameraState, 7> allStates{
    CameraState::idle,        CameraState::starting, CameraState::running, CameraState::frozen,
    CameraState::unreachable, CameraState::refused,  CameraState::failed};

double secondsOf(WallTime time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

double secondsOf(const timeval& time)
{
    constexpr double microseconds = 1e-6;
    return static_cast<double>(time.tv_sec) + (microseconds * static_cast<double>(time.tv_usec));
}

int entriesOf(const char* folder)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> opened(::opendir(folder), &::closedir);
    int count = 0;
    while (opened != nullptr && ::readdir(opened.get()) != nullptr)
    {
        ++count;
    }
    return count > 2 ? count - 2 : 0;
}

void writeProcess(MetricsText& out)
{
    std::ifstream memory("/proc/self/statm");
    double pages = 0;
    double resident = 0;
    if (memory >> pages >> resident)
    {
        const auto pageSize = static_cast<double>(::sysconf(_SC_PAGESIZE));
        out.single("process_virtual_memory_bytes", gauge, "Virtual memory.", pages * pageSize);
        out.single("process_resident_memory_bytes", gauge, "Memory in use.", resident * pageSize);
    }
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) == 0)
    {
        out.single("process_cpu_seconds_total", counter, "Processor time.",
                   secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime));
    }
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        out.single("process_max_fds", gauge, "Most descriptors that the process may open.",
                   static_cast<double>(limit.rlim_cur));
    }
    out.single("process_open_fds", gauge, "Open descriptors.", entriesOf("/proc/self/fd"));
    out.single("ovrtspd_threads", gauge, "Threads of the process.", entriesOf("/proc/self/task"));
}

/// What came from the sources.
void writeReceived(MetricsText& out, const std::vector<CameraStatus>& all)
{
    using Received = StreamSource::Received;
    const auto streams = Device::streams();
    std::vector<std::pair<MetricsText::StreamLabels, Received>> received;
    for (const CameraStatus& each : all)
    {
        const auto source = streams == nullptr ? nullptr : streams->find(each.camera, each.stream);
        if (source != nullptr)
        {
            received.emplace_back(MetricsText::StreamLabels{each.camera, each.stream}, source->received());
        }
    }
    const auto write = [&](std::string_view name, std::string_view type, std::string_view help,
                           const std::function<double(const Received&)>& value)
    {
        out.family(name, type, help);
        for (const auto& [labels, counts] : received)
        {
            out.sample(labels, value(counts));
        }
    };
    write("ovrtspd_stream_received_packets_total", counter, "RTP packets that the source gave.",
          [](const Received& counts) { return static_cast<double>(counts.packets); });
    write("ovrtspd_stream_received_bytes_total", counter, "Encoded video and audio that the source gave.",
          [](const Received& counts) { return static_cast<double>(counts.bytes); });
    write("ovrtspd_stream_key_frames_total", counter, "Key frames that the source gave.",
          [](const Received& counts) { return static_cast<double>(counts.keyFrames); });
    write("ovrtspd_stream_key_frame_interval_seconds", gauge,
          "Time between the last two key frames; 0: not known.",
          [](const Received& counts)
          { return std::chrono::duration<double>(counts.keyFrameInterval).count(); });
}

void writeStreams(MetricsText& out, const ServerView& view)
{
    const std::vector<CameraStatus> all = view.cameras->snapshot();
    const auto id = [](int number) { return std::to_string(number); };
    out.family("ovrtspd_stream_up", gauge, "Whether frames come from the stream's source.");
    for (const CameraStatus& each : all)
    {
        out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}},
                   each.state == CameraState::running ? 1 : 0);
    }
    out.family("ovrtspd_stream_state", gauge, "1 for the state that the stream's source is in.");
    for (const CameraStatus& each : all)
    {
        for (const CameraState state : allStates)
        {
            out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}, {"state", nameOf(state)}},
                       each.state == state ? 1 : 0);
        }
    }
    out.family("ovrtspd_stream_state_since_seconds", gauge, "When the source entered its state, since 1970.");
    for (const CameraStatus& each : all)
    {
        if (each.starts > 0)
        {
            out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}}, secondsOf(each.since));
        }
    }
    out.family("ovrtspd_stream_starts_total", counter, "Tries to run the source.");
    for (const CameraStatus& each : all)
    {
        out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}},
                   static_cast<double>(each.starts));
    }
    out.family("ovrtspd_stream_failures_total", counter, "Tries to run the source that failed.");
    for (const CameraStatus& each : all)
    {
        out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}},
                   static_cast<double>(each.failures));
    }
    writeReceived(out, all);
    const auto streams = Device::streams();
    out.family("ovrtspd_stream_needed", gauge, "Whether somebody watches or records the stream.");
    for (const CameraStatus& each : all)
    {
        const auto source = streams == nullptr ? nullptr : streams->find(each.camera, each.stream);
        out.sample({{"camera", id(each.camera)}, {"stream", id(each.stream)}},
                   source != nullptr && source->isNeeded() ? 1 : 0);
    }
}

/// Counters of which a part lies with those that live: they must not seem to go back while one ends.
class Rising
{
public:
    double noLessThan(double value)
    {
        const MutexLock guard(mutex_);
        highest_ = std::max(highest_, value);
        return highest_;
    }

private:
    Mutex mutex_;
    double highest_ OV_GUARDED_BY(mutex_) = 0;
};

class SessionCounters
{
public:
    Rising sessions;
    Rising bytes;
    Rising lost;

    Rising& of(int camera)
    {
        const MutexLock guard(mutex_);
        return bytesOf_[camera];
    }

private:
    Mutex mutex_;
    std::map<int, Rising> bytesOf_ OV_GUARDED_BY(mutex_);  ///< of each camera that was ever configured
};

void writeSessions(MetricsText& out, const ServerView& view, SessionCounters& counters)
{
    const SessionTable::Past past = view.sessions->past();
    const std::vector<SessionSummary> all = view.sessions->summaries();
    std::map<std::pair<std::string, std::string>, int> byKind;
    for (const std::string kind : {"live", "playback", "multicast"})
    {
        for (const std::string transport : {"udp", "tcp", "tls", "srtp", "multicast"})
        {
            if ((kind == "multicast") == (transport == "multicast"))
            {
                byKind[{kind, transport}] = 0;
            }
        }
    }
    std::map<int, int> byCamera;
    std::map<int, double> bytesOf(past.bytesOf.begin(), past.bytesOf.end());
    auto bytes = static_cast<double>(past.bytes);
    auto lost = static_cast<double>(past.lost);
    for (const SessionSummary& session : all)
    {
        const auto known = byKind.find({std::string(session.kind), std::string(session.transport)});
        if (known != byKind.end())
        {
            ++known->second;
        }
        if (session.camera && session.playing)
        {
            ++byCamera[*session.camera];
        }
        if (session.camera)
        {
            bytesOf[*session.camera] += static_cast<double>(session.bytes);
        }
        bytes += static_cast<double>(session.bytes);
        lost += static_cast<double>(session.lost);
    }
    out.family("ovrtspd_sessions", gauge, "RTSP sessions.");
    for (const auto& [labels, count] : byKind)
    {
        out.sample({{"kind", labels.first}, {"transport", labels.second}}, count);
    }
    out.family("ovrtspd_camera_viewers", gauge, "Sessions that play a camera, live or recorded.");
    for (const CameraConfig& camera : view.config()->cameras)
    {
        out.sample({{"camera", std::to_string(camera.id)}}, byCamera[camera.id]);
    }
    out.family("ovrtspd_camera_sent_bytes_total", counter,
               "RTP payload of the camera sent to clients, without multicast.");
    for (const CameraConfig& camera : view.config()->cameras)
    {
        out.sample({{"camera", std::to_string(camera.id)}},
                   counters.of(camera.id).noLessThan(bytesOf[camera.id]));
    }
    out.single("ovrtspd_sessions_created_total", counter, "RTSP sessions so far.",
               counters.sessions.noLessThan(static_cast<double>(past.sessions + all.size())));
    out.single("ovrtspd_sent_bytes_total", counter, "RTP payload sent to clients, without multicast.",
               counters.bytes.noLessThan(bytes));
    out.single("ovrtspd_lost_packets_total", counter, "Packets that clients reported as lost.",
               counters.lost.noLessThan(lost));
}

void writeRecordings(MetricsText& out, const ServerView& view)
{
    const auto config = view.config();
    if (const auto disk = DiskSpace::of(config->recording.directory))
    {
        out.single("ovrtspd_recording_disk_available_bytes", gauge, "Room on the disk of the recordings.",
                   static_cast<double>(disk->available));
        out.single("ovrtspd_recording_disk_bytes", gauge, "Size of the disk of the recordings.",
                   static_cast<double>(disk->capacity));
    }
    const auto index = Device::recordings();
    if (index == nullptr)
    {
        return;
    }
    out.family("ovrtspd_recording_bytes", gauge, "Size of the camera's recordings.");
    for (const CameraConfig& camera : config->cameras)
    {
        out.sample({{"camera", std::to_string(camera.id)}}, static_cast<double>(index->bytesOf(camera.id)));
    }
    out.single("ovrtspd_recording_segments", gauge, "Files of recordings.",
               static_cast<double>(index->count()));
    out.single("ovrtspd_recording_index_complete", gauge, "Whether the index knows every recording.",
               index->isComplete() ? 1 : 0);
    if (const auto oldest = index->oldestClosed())
    {
        out.single("ovrtspd_recording_oldest_seconds", gauge, "Begin of the oldest recording, since 1970.",
                   secondsOf(oldest->begin));
    }
    if (const auto newest = index->newestBegin())
    {
        out.single("ovrtspd_recording_newest_seconds", gauge, "Begin of the newest segment, since 1970.",
                   secondsOf(*newest));
    }
}

void writeRecorders(MetricsText& out, const ServerView& view)
{
    if (view.recording == nullptr)
    {
        return;
    }
    out.family("ovrtspd_recording_active", gauge, "Whether what comes of the stream is recorded now.");
    for (const CameraConfig& camera : view.config()->cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            const auto state = view.recording->state(camera.id, stream.id);
            out.sample(MetricsText::StreamLabels{camera.id, stream.id}, state && state->recording ? 1 : 0);
        }
    }
    const std::map<int, std::uint64_t> events = view.recording->events();
    out.family("ovrtspd_recording_events_total", counter, "Events that were to be recorded.");
    for (const CameraConfig& camera : view.config()->cameras)
    {
        const auto found = events.find(camera.id);
        out.sample({{"camera", std::to_string(camera.id)}},
                   found == events.end() ? 0 : static_cast<double>(found->second));
    }
}

void writeLoops(MetricsText& out)
{
    // Loops of one name are one series.
    std::map<std::string, double> lags;
    for (const LoopMonitor::Waiting& loop : LoopMonitor::instance().lags())
    {
        double& lag = lags[loop.name];
        lag = std::max(lag, std::chrono::duration<double>(loop.waited).count());
    }
    out.family("ovrtspd_event_loop_lag_seconds", gauge,
               "How long a task of the event loop waited when last measured, once a second.");
    for (const auto& [name, lag] : lags)
    {
        out.sample({{"loop", name}}, lag);
    }
}

void writeFigures(MetricsText& out)
{
    const ServerFigures& figures = ServerFigures::instance();
    const auto number = [](const ServerFigures::Count& count)
    { return static_cast<double>(count.load(std::memory_order_relaxed)); };
    out.histogram("ovrtspd_live_join_seconds", "Time from PLAY of a live stream to its first frame.",
                  figures.liveJoins.counts());
    out.single("ovrtspd_live_skipped_units_total", counter,
               "Frames and blocks of audio left out for clients that read too slowly.",
               number(figures.liveSkipped));
    out.histogram("ovrtspd_receiver_jitter_seconds", "Jitter of arrival, as receivers report it by RTCP.",
                  figures.receiverJitter.counts());
    out.histogram("ovrtspd_recording_write_seconds",
                  "Time to write what was gathered of a recording to its file.",
                  figures.recordingWrites.counts());
    out.single("ovrtspd_playback_seeks_total", counter, "Positions that were searched in recordings.",
               number(figures.playbackSeeks));
    out.single("ovrtspd_talk_sessions", gauge, "Sessions whose audio is received.",
               number(figures.talkSessions));
    out.single("ovrtspd_talk_received_packets_total", counter, "RTP packets of audio that clients sent.",
               number(figures.talkPackets));
    out.single("ovrtspd_talk_lost_packets_total", counter, "Packets of such audio that did not come in time.",
               number(figures.talkLost));
}

void writeAudit(MetricsText& out)
{
    out.family("ovrtspd_audit_events_total", counter, "Events of the audit log, suppressed lines included.");
    for (const auto& [event, count] : AuditLog::counts())
    {
        out.sample({{"event", std::string(event)}}, static_cast<double>(count));
    }
}

}  // namespace

void MetricsRoutes::add(HttpRouter& router, const ServerView& view, const HttpService& service)
{
    const auto counters = std::make_shared<SessionCounters>();
    router.add({"GET", "/metrics", HttpAccess::server(Right::live),
                [view, counters, &service](const HttpRequest&)
                {
                    MetricsText out;
                    writeProcess(out);
                    writeStreams(out, view);
                    writeSessions(out, view, *counters);
                    writeRecordings(out, view);
                    writeRecorders(out, view);
                    writeFigures(out);
                    writeLoops(out);
                    writeAudit(out);
                    out.single("ovrtspd_http_connections", gauge, "Connections of the HTTP service.",
                               static_cast<double>(service.connectionCount()));
                    out.single("ovrtspd_http_requests_total", counter, "Requests to the HTTP service.",
                               static_cast<double>(service.requestCount()));
                    return HttpReply::of(MetricsText::contentType, out.take());
                },
                true});
}

}  // namespace refhost
