#include "hostapi/playback/IMediaSource.h"

IMediaSource::IMediaSource() = default;

IMediaSource::~IMediaSource() noexcept(false) = default;
