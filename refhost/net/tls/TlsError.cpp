#include "refhost/net/tls/TlsError.h"

#include <openssl/err.h>

#include <cstring>

namespace refhost
{

std::string takeTlsError()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0)
    {
        return "no reason given";
    }
    // Errors of the system have their numbers in the same code.
    const char* const reason =
        ERR_SYSTEM_ERROR(code) ? std::strerror(ERR_GET_REASON(code)) : ERR_reason_error_string(code);
    return reason == nullptr ? "error " + std::to_string(code) : reason;
}

}  // namespace refhost
