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
int report(const char* method, const std::string& track)
{
    std::printf("  dispatcher: %s %s\n", method, track.c_str());
    return 0;
}
}  // namespace

// --- counted handles: one record for each object that a handle holds. With one thread there is nobody to wait
// for; a host with several gives each record a lock of its own and the table another.
namespace
{
struct Record : ref_count
{
    void* object = nullptr;
    mutable int holders = 0;
};
struct Records : RefCountManager
{
    std::map<void*, Record> ofObjects;
};
Record& own(ref_count* record) { return *static_cast<Record*>(record); }
}  // namespace

RefCountManager* RefCountManager::getInstance()
{
    static Records* const records = new Records;  // outlives every handle
    return records;
}
ref_count* RefCountManager::retrieveRefCount(void* object, const char*)
{
    Record& record = static_cast<Records*>(this)->ofObjects[object];
    record.object = object;
    ++record.holders;
    return &record;
}
void RefCountManager::returnbackRefCount(ref_count* record, const char*) { own(record).object = nullptr; }
int ref_count::lock() { return own(this).object == nullptr ? -1 : 0; }
void ref_count::unLock() {}
void* ref_count::getPointer() { return own(this).object; }
int ref_count::inc_reference() const
{
    const Record& record = *static_cast<const Record*>(this);
    return record.holders > 0 ? ++record.holders : 0;
}
int ref_count::dec_reference() { return --own(this).holders; }

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
    return report("packetise", track);
}
int RTPStreamDispatcherMgr::addRTPConnection(Text, Text, Text track, const SafePointer<IConnection>&)
{
    return report("connect", track);
}
int RTPStreamDispatcherMgr::play(Text, Text, Text track) { return report("play", track); }
int RTPStreamDispatcherMgr::pause(Text, Text, Text track) { return report("pause", track); }
int RTPStreamDispatcherMgr::deleteRTPConnection(Text, Text, Text track) { return report("end", track); }
int RTPStreamDispatcherMgr::getTrackSSRC(Text, Text, Text, int& ssrc)
{
    ssrc = 0x1234;
    return 0;
}

// --- not offered: talk-back, recordings and the other transports of live streams
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
