// Interfaces of the host contract whose only definition is their construction and destruction.
#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/device/IConnection.h"

IConnection::IConnection(int kind) : transportKind(kind) {}

IConnection::~IConnection() noexcept(false) = default;

IMediaPlayer::~IMediaPlayer() noexcept(false) = default;
