#include "support/BaseSafePointer.h"

BaseSafePointer::~BaseSafePointer() noexcept(false) = default;
