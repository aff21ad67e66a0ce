#include "hostapi/audio/IMediaPlayer.h"

IMediaPlayer::~IMediaPlayer() noexcept(false) = default;
