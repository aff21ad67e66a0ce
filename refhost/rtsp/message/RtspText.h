#pragma once

#include <string_view>

namespace refhost
{

/// The rules of text that the header parsers share. ASCII only, whatever the locale. Threads: any; no state.
class RtspText
{
public:
    /// Without the blanks and tabs (and line ends of folded lines) at both ends.
    static std::string_view trim(std::string_view text);

    /// Cuts `rest` at its next `separator` outside of double quotes.
    /// \param[in,out] rest  loses the part and the separator; becomes empty after the last part
    /// \returns the part, trimmed
    static std::string_view cut(std::string_view& rest, char separator);

    /// Without the double quotes around it, where there are some. Escapes inside stay as they are.
    static std::string_view unquote(std::string_view text);

    /// One or more characters that RFC 2326 allows in a token (method and header names).
    static bool isToken(std::string_view text);
};

}  // namespace refhost
