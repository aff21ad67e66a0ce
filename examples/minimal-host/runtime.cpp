// The host's side of the contract, as small as it can be for live streams on one thread.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "hostapi/audio/AudioDispatcher.h"
#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/base/DataConverter.h"
#include "hostapi/base/OVMutex.h"
#include "hostapi/base/RefCountManager.h"
#include "hostapi/description/MediaInfoTool.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "hostapi/threads/GThread.h"

using Text = const std::string&;

namespace
{
int tell(const char* verb, const std::string& track)
{
    std::printf("  dispatcher: %s %s\n", verb, track.c_str());
    return 0;
}
}  // namespace

// --- counted handles: one record for each object that a handle holds
struct RefCountManager::Impl
{
    std::map<void*, ref_count> records;
};
RefCountManager::RefCountManager() : impl_(new Impl) {}
RefCountManager* RefCountManager::getInstance()
{
    static RefCountManager* const manager = new RefCountManager;  // outlives every handle
    return manager;
}
ref_count* RefCountManager::retrieveRefCount(void* object, const char*)
{
    ref_count& record = impl_->records[object];
    record.pointer_ = object;
    ++record.holders_;
    return &record;
}
void RefCountManager::returnbackRefCount(ref_count* record, const char*) { record->pointer_ = nullptr; }
void ref_count::lockContended() const { std::abort(); }  // one thread alone never meets another
int ref_count::releaseLast() { return holders_ = 0; }

// --- mutex, time, numbers
struct OVMutex::Impl
{
    std::mutex mutex;
};
OVMutex::OVMutex() : impl_(new Impl) {}
OVMutex::~OVMutex() { delete impl_; }
void OVMutex::Lock(const char*, int) { impl_->mutex.lock(); }
void OVMutex::Unlock(const char*, int) { impl_->mutex.unlock(); }

bool DataConverter::convert(const std::string& text, int& number)
{
    char rest = 0;
    return std::sscanf(text.c_str(), "%d%c", &number, &rest) == 1;
}
bool DataConverter::convert(const int& number, std::string& text)
{
    text = std::to_string(number);
    return true;
}

// --- what the camera sends
struct MediaInfoTool::Impl
{
    std::string url;
};
MediaInfoTool::MediaInfoTool() : impl_(new Impl) {}
MediaInfoTool::~MediaInfoTool() { delete impl_; }
void MediaInfoTool::setDeviceInfoEx(const DeviceInfoEx&) {}
void MediaInfoTool::setDeviceExAbility(const DeviceExAbility&) {}
void MediaInfoTool::setMediaUrl(const std::string& url) { impl_->url = url; }
void MediaInfoTool::setThirdPlatType(int) {}
int MediaInfoTool::createMediaInfo(int, int, MediaInfo& out, bool)
{
    SubMediaInfo video;
    video.trackId = "trackID=0";
    video.mediaType = "video";
    video.encodingName = "H264";
    video.payloadType = 96;
    video.clockRate = 90000;
    out.mediaUrl = impl_->url;
    out.addSubMediaInfo(video);
    return 0;
}

// --- RTP: a real host packetises and sends here
IConnection::IConnection(int kind) : transportKind(kind) {}
IConnection::~IConnection() noexcept(false) = default;

RTPStreamDispatcherMgr::RTPStreamDispatcherMgr() : impl_(nullptr) {}
RTPStreamDispatcherMgr::~RTPStreamDispatcherMgr() noexcept(false) = default;
SafePointer<RTPStreamDispatcherMgr> RTPStreamDispatcherMgr::getInstance()
{
    static const SafePointer<RTPStreamDispatcherMgr> dispatcher(new RTPStreamDispatcherMgr);
    return dispatcher;
}
int RTPStreamDispatcherMgr::initRTPBuilder(Text, Text, Text track, const SubMediaInfo&, int)
{
    return tell("packetise", track);
}
int RTPStreamDispatcherMgr::addRTPConnection(Text, Text, Text track, const SafePointer<IConnection>&)
{
    return tell("connect", track);
}
int RTPStreamDispatcherMgr::play(Text, Text, Text track) { return tell("play", track); }
int RTPStreamDispatcherMgr::pause(Text, Text, Text track) { return tell("pause", track); }
int RTPStreamDispatcherMgr::deleteRTPConnection(Text, Text, Text track) { return tell("end", track); }
int RTPStreamDispatcherMgr::getTrackSSRC(Text, Text, Text, int& ssrc)
{
    ssrc = 0x1234;
    return 0;
}

// --- not offered: talk-back, recordings and the other ways of live streams
// ------------------------------------ No URL leads there, so none of their operations is ever called. Their
// types have to be known all the same, and a type is where its destructor is.
OVThread::OVThread() : state_(nullptr) {}
OVThread::~OVThread() noexcept(false) = default;
GThread::~GThread() noexcept(false) = default;
int GThread::emptyFun() { return 0; }
IMediaPlayer::~IMediaPlayer() noexcept(false) = default;
AudioDispatcher::~AudioDispatcher() noexcept(false) = default;
LiveDispatcherMgr::~LiveDispatcherMgr() noexcept(false) = default;
IMediaSource::~IMediaSource() noexcept(false) = default;
OVAVPlayBackSource::~OVAVPlayBackSource() noexcept(false) = default;
RecordInfo OVAVPlayBackSource::getRecordInfo() const { return {}; }
RTPPlayBackDispacher::~RTPPlayBackDispacher() noexcept(false) = default;
RTPPlayBackDispacherMgr::~RTPPlayBackDispacherMgr() noexcept(false) = default;
