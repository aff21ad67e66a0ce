#pragma once
// Tested by tests/refhost/net/tls/TlsContext_test.cpp.

#include <string>

namespace refhost
{

/// Takes the oldest error off this thread's queue of OpenSSL errors and empties the queue.
/// \returns its reason, such as "wrong version number"; a text that says so when there is none
std::string takeTlsError();

}  // namespace refhost
