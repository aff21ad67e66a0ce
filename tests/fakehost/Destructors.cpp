// Interfaces of the host contract whose only definition is their construction and destruction.
#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/playback/IMediaSource.h"

IConnection::IConnection(int kind) : transportKind(kind) {}

IConnection::~IConnection() noexcept(false) = default;

IMediaSource::IMediaSource() = default;

IMediaSource::~IMediaSource() noexcept(false) = default;

IMediaPlayer::~IMediaPlayer() noexcept(false) = default;
