#include "mediaurl/IMediaUrlFactory.h"

IMediaUrlFactory::~IMediaUrlFactory() noexcept(false) = default;
