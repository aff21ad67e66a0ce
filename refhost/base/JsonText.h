#pragma once

#include <string>
#include <string_view>

namespace refhost
{

/// Writes texts as JSON (RFC 8259). Threads: any; no state.
class JsonText
{
public:
    /// Appends `text` as a string with its quotes: valid JSON in ASCII-safe UTF-8 whatever bytes it holds.
    /// A byte that is not part of valid UTF-8 becomes the four characters \xNN.
    static void append(std::string& out, std::string_view text);
};

}  // namespace refhost
