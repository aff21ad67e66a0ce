#include "mediaurl/IMediaUrl.h"

IMediaUrl::IMediaUrl() = default;

IMediaUrl::~IMediaUrl() noexcept(false) = default;
