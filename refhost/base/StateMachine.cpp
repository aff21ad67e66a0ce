#include "refhost/base/StateMachine.h"

#include "refhost/base/Log.h"

namespace refhost
{

void logIllegalTransition(const char* machine, const char* from, const char* to)
{
    Log::error("{}: illegal transition from {} to {}", machine, from, to);
}

}  // namespace refhost
