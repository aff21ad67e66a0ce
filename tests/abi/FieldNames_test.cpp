#include <gtest/gtest.h>

#include <map>
#include <string>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "live/OVLiveController.h"
#include "live/OVLiveController2.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "live/OVMulticastLiveController.h"
#include "mediaurl/MediaUrlParam.h"
#include "playback/OVPlaybackControllerFactory.h"

// The field names that debuggers and tools of hosts look for, private ones included: an explicit instantiation may name
// private members. The test is that this compiles.
namespace
{

template <class T, class C, T C::*Member>
struct Field
{
};

template struct Field<std::string, MediaUrlParam, &MediaUrlParam::mediaUrlPrefix>;
template struct Field<std::string, MediaUrlParam, &MediaUrlParam::deviceId>;
template struct Field<int, MediaUrlParam, &MediaUrlParam::cameraID>;
template struct Field<int, MediaUrlParam, &MediaUrlParam::streamID>;
template struct Field<double, MediaUrlParam, &MediaUrlParam::recordBeginTime>;
template struct Field<double, MediaUrlParam, &MediaUrlParam::recordEndTime>;
template struct Field<bool, MediaUrlParam, &MediaUrlParam::multicastFlag>;

template struct Field<DeviceInfoEx, OVLiveControllerFactory, &OVLiveControllerFactory::deviceInfo>;
template struct Field<DeviceExAbility, OVLiveControllerFactory, &OVLiveControllerFactory::deviceAbility>;
template struct Field<int, OVLiveControllerFactory, &OVLiveControllerFactory::thirdPlatType>;
template struct Field<OVMutex, OVLiveControllerFactory, &OVLiveControllerFactory::mutex>;

template struct Field<DeviceInfoEx, OVLiveControllerFactory2, &OVLiveControllerFactory2::deviceInfo>;
template struct Field<DeviceExAbility, OVLiveControllerFactory2, &OVLiveControllerFactory2::deviceAbility>;
template struct Field<int, OVLiveControllerFactory2, &OVLiveControllerFactory2::thirdPlatType>;
template struct Field<OVMutex, OVLiveControllerFactory2, &OVLiveControllerFactory2::mutex>;

template struct Field<DeviceInfoEx, OVMulticastLiveControlerFactory,
                      &OVMulticastLiveControlerFactory::deviceInfo>;
template struct Field<DeviceExAbility, OVMulticastLiveControlerFactory,
                      &OVMulticastLiveControlerFactory::deviceAbility>;
template struct Field<int, OVMulticastLiveControlerFactory, &OVMulticastLiveControlerFactory::thirdPlatType>;
template struct Field<OVMutex, OVMulticastLiveControlerFactory, &OVMulticastLiveControlerFactory::mutex>;

template struct Field<DeviceInfoEx, OVPlaybackControllerFactory, &OVPlaybackControllerFactory::deviceInfo>;
template struct Field<DeviceExAbility, OVPlaybackControllerFactory,
                      &OVPlaybackControllerFactory::deviceAbility>;
template struct Field<int, OVPlaybackControllerFactory, &OVPlaybackControllerFactory::thirdPlatType>;
template struct Field<OVMutex, OVPlaybackControllerFactory, &OVPlaybackControllerFactory::mutex>;

template struct Field<OVMutex, OVLiveController, &OVLiveController::mutex>;
template struct Field<std::string, OVLiveController, &OVLiveController::mediaUrl>;
template struct Field<std::string, OVLiveController, &OVLiveController::streamKey>;
template struct Field<MediaInfo, OVLiveController, &OVLiveController::mediaInfo>;
template struct Field<MediaUrlParam, OVLiveController, &OVLiveController::mediaUrlParam>;
template struct Field<DeviceInfoEx, OVLiveController, &OVLiveController::deviceInfo>;
template struct Field<DeviceExAbility, OVLiveController, &OVLiveController::deviceAbility>;
template struct Field<std::string, OVLiveController, &OVLiveController::audioBackTrackId>;

template struct Field<OVMutex, OVLiveController2, &OVLiveController2::mutex>;
template struct Field<std::string, OVLiveController2, &OVLiveController2::mediaUrl>;
template struct Field<MediaUrlParam, OVLiveController2, &OVLiveController2::mediaUrlParam>;
template struct Field<std::string, OVLiveController2, &OVLiveController2::streamKey>;
template struct Field<MediaInfo, OVLiveController2, &OVLiveController2::mediaInfo>;
template struct Field<DeviceInfoEx, OVLiveController2, &OVLiveController2::deviceInfo>;
template struct Field<DeviceExAbility, OVLiveController2, &OVLiveController2::deviceAbility>;
template struct Field<std::string, OVLiveController2, &OVLiveController2::audioBackTrackId>;

template struct Field<OVMutex, OVMulticastLiveController, &OVMulticastLiveController::mutex>;
template struct Field<std::string, OVMulticastLiveController, &OVMulticastLiveController::mediaUrl>;
template struct Field<MediaUrlParam, OVMulticastLiveController, &OVMulticastLiveController::mediaUrlParam>;
template struct Field<std::string, OVMulticastLiveController, &OVMulticastLiveController::streamKey>;
template struct Field<MediaInfo, OVMulticastLiveController, &OVMulticastLiveController::mediaInfo>;
template struct Field<DeviceInfoEx, OVMulticastLiveController, &OVMulticastLiveController::deviceInfo>;
template struct Field<DeviceExAbility, OVMulticastLiveController, &OVMulticastLiveController::deviceAbility>;
template struct Field<std::string, OVMulticastLiveController, &OVMulticastLiveController::audioBackTrackId>;

template struct Field<SafePointer<GThread>, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::thread>;
template struct Field<OVMutex, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::mutex>;
template struct Field<int, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::encoderType>;
template struct Field<DeviceInfoEx, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::deviceInfo>;
template struct Field<DeviceExAbility, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::deviceAbility>;
template struct Field<int, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::thirdPlatType>;
template struct Field<std::string, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::audioBackTrackId>;
template struct Field<SafePointer<IMediaPlayer>, OVAudioBackDispatcherMgr,
                      &OVAudioBackDispatcherMgr::mediaPlayer>;
template struct Field<bool, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::playerOpened>;
template struct Field<std::map<std::string, SafePointer<AudioDispatcher>>, OVAudioBackDispatcherMgr,
                      &OVAudioBackDispatcherMgr::sessions>;
template struct Field<MTUParam, OVAudioBackDispatcherMgr, &OVAudioBackDispatcherMgr::mtuParam>;

}  // namespace

TEST(FieldNames, AreThoseThatHostsKnow)
{
    SUCCEED() << "the compiler has judged";
}
