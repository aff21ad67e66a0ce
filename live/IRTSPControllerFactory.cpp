#include "live/IRTSPControllerFactory.h"

IRTSPControllerFactory::~IRTSPControllerFactory() noexcept(false) = default;
